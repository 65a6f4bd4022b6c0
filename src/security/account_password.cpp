#include "security/account_password.h"

#include <objbase.h>

#include "base/text.h"

namespace {

// The characters of passwords, and beside each the class that it belongs to.
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVabcdefghijklmnopqrstuv0123456789!=$-+.,~^_";
constexpr char kClasses[] = "1111111111111111111111222222222222222222222244444444448888888888";
constexpr int kAllClasses = 15;

constexpr int kGroups = 5;
constexpr int kGroupLength = 4;
static_assert(kGroups * kGroupLength == kPasswordLength);
// The bytes of a GUID that groups are made of: the first, and the way to the next. The format of passwords is
// settled: the bytes between are not mixed in, and so the last two characters of a group are always the
// alphabet's first.
constexpr int kFirstByte = 2;
constexpr int kByteStep = 3;
constexpr int kBitsOfCharacter = 6;
constexpr unsigned kCharacterMask = 63;

// Writes the password that the bytes stand for. Returns the classes that are missing in it.
int WritePassword(const BYTE* bytes, wchar_t* text) {
  int missing = kAllClasses;
  for (int group = 0; group < kGroups; ++group) {
    unsigned value = bytes[kFirstByte + kByteStep * group];
    for (int place = 0; place < kGroupLength; ++place) {
      unsigned index = value & kCharacterMask;
      value >>= kBitsOfCharacter;
      *text++ = static_cast<wchar_t>(kAlphabet[index]);
      missing &= ~(kClasses[index] - '0');
    }
  }
  *text = L'\0';
  return missing;
}

}  // namespace

AccountPassword::~AccountPassword() {
  WipeBytes(text, sizeof text);
}

HRESULT GenerateAccountPassword(AccountPassword* password) {
  GUID chance;
  HRESULT result;
  do {
    result = CoCreateGuid(&chance);
  } while (SUCCEEDED(result) && WritePassword(reinterpret_cast<const BYTE*>(&chance), password->text) != 0);
  WipeBytes(&chance, sizeof chance);
  return result;
}
