#include "security/account_password.h"

#include <objbase.h>

#include "base/text.h"

namespace {

// The characters of passwords, and the class of each: capital 1, small 2, digit 4, other 8.
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVabcdefghijklmnopqrstuv0123456789!=$-+.,~^_";
constexpr char kClasses[] = "1111111111111111111111222222222222222222222244444444448888888888";
constexpr int kAllClasses = 15;

constexpr int kGroups = 5;
constexpr int kGroupLength = 4;
static_assert(kGroups * kGroupLength == kPasswordLength);
// The bytes of a GUID from which the groups are made: the first one, and the distance to the next.
// On purpose: the bytes between them are not used, because the format of passwords is fixed. So the last two
// characters of a group are always the first one of the alphabet.
constexpr int kFirstByte = 2;
constexpr int kByteStep = 3;
constexpr int kBitsOfCharacter = 6;
constexpr unsigned kCharacterMask = 63;

// Writes the password for the GUID `bytes`, with the terminator. Returns the classes that are missing in it.
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
