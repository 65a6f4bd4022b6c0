// The passwords of service accounts: mapping random bytes to text, character classes, and clearing the
// memory.

#include "security/account_password.h"

#include <objbase.h>

#include <array>
#include <cstring>
#include <deque>
#include <string>

#include "rig/import_hook.h"
#include "rig/internals_test.h"
#include "rig/own_stack.h"
#include "rig/print.h"

namespace account_password_test {

HX_INTERNAL(GenerateAccountPassword);

using Bytes = std::array<BYTE, sizeof(GUID)>;

// Returns the character for a number from 0 to 63.
char Letter(unsigned number) {
  if (number < 22) return static_cast<char>('A' + number);
  if (number < 44) return static_cast<char>('a' + number - 22);
  return number < 54 ? static_cast<char>('0' + number - 44) : "!=$-+.,~^_"[number - 54];
}

// Returns the password that results from 16 bytes.
std::string TextOf(const Bytes& bytes) {
  std::string text;
  for (size_t at : {2, 5, 8, 11, 14}) {
    text += Letter(bytes[at] % 64);
    text += Letter(bytes[at] / 64);
    text += "AA";
  }
  return text;
}

// Returns 16 bytes with the five that count; the others have all bits set.
Bytes Chance(BYTE a, BYTE b, BYTE c, BYTE d, BYTE e) {
  Bytes bytes;
  bytes.fill(0xFF);
  bytes[2] = a;
  bytes[5] = b;
  bytes[8] = c;
  bytes[11] = d;
  bytes[14] = e;
  return bytes;
}

class AccountPasswordTest : public rig::InternalsTest {
 protected:
  // Returns a password, or the code of an error. CoCreateGuid returns `behind` once all chances are used up.
  std::string Make(const std::deque<Bytes>& chances, HRESULT behind = E_UNEXPECTED) {
    std::deque<Bytes> left = chances;
    TheRig().On<::CoCreateGuid>([&left, behind](GUID* out) {
      if (left.empty()) return behind;
      std::memcpy(out, left.front().data(), sizeof *out);
      left.pop_front();
      return HRESULT{S_OK};
    });
    rig::GuardedBuffer memory(sizeof(AccountPassword));
    HRESULT result = GenerateAccountPassword(memory.As<AccountPassword>());
    taken_ = chances.size() - left.size();
    if (SUCCEEDED(result) && memory.As<AccountPassword>()->text[kPasswordLength] != L'\0')
      return "without a terminator";
    return FAILED(result) ? rig::HexText(static_cast<uint32_t>(result)) : rig::ToUtf8(memory.As<wchar_t>());
  }
  // Makes CoCreateGuid return this GUID once, and then fail.
  void DrawOnce(const GUID& chance) {
    bool isDrawn = false;
    TheRig().On<::CoCreateGuid>([chance, isDrawn](GUID* out) mutable {
      if (isDrawn) return E_UNEXPECTED;
      isDrawn = true;
      *out = chance;
      return HRESULT{S_OK};
    });
  }
  // The number of GUIDs that the last password took.
  size_t taken_ = 0;
};

TEST_F(AccountPasswordTest, BytesMapToTextInMemoryOrder) {
  const std::vector<std::pair<Bytes, const char*>> known = {
      {Chance(0x16, 0x2C, 0x36, 0x00, 0x00), "aAAA0AAA!AAAAAAAAAAA"},
      {Chance(0xFF, 0x2C, 0x16, 0x40, 0x80), "_DAA0AAAaAAAABAAACAA"},
      {Chance(0x15, 0x16, 0x2B, 0x2C, 0x36), "VAAAaAAAvAAA0AAA!AAA"},
      {Chance(0x35, 0xF5, 0x2B, 0xEB, 0x76), "9AAA9DAAvAAAvDAA!BAA"},
      {Chance(0x37, 0x38, 0x39, 0x2D, 0x17), "=AAA$AAA-AAA1AAAbAAA"},
      {Chance(0x3A, 0x3B, 0x3C, 0x2E, 0x18), "+AAA.AAA,AAA2AAAcAAA"},
      {Chance(0x3D, 0x3E, 0x3F, 0xAF, 0xD9), "~AAA^AAA_AAA3CAAdDAA"},
      {{0x00, 0x11, 0x56, 0x33, 0x44, 0xAC, 0x66, 0x77, 0xF6, 0x99, 0xAA, 0x2B, 0xCC, 0xDD, 0x35, 0xFF},
       "aBAA0CAA!DAAvAAA9AAA"},
  };
  for (const auto& [bytes, text] : known) {
    EXPECT_EQ(Make({bytes}), text);
  }
}

TEST_F(AccountPasswordTest, AGuidIsTakenFieldByField) {
  // In each field the lowest byte comes first.
  DrawOnce({0x00560000, 0xAC00, 0x0000, {0xF6, 0, 0, 0x2B, 0, 0, 0x35, 0}});
  rig::GuardedBuffer memory(sizeof(AccountPassword));
  EXPECT_EQ(GenerateAccountPassword(memory.As<AccountPassword>()), S_OK);
  EXPECT_EQ(rig::ToUtf8(memory.As<wchar_t>()), "aBAA0CAA!DAAvAAA9AAA");
}

TEST_F(AccountPasswordTest, TheOtherBytesHaveNoEffect) {
  for (size_t at = 0; at < sizeof(GUID); ++at) {
    Bytes bytes = Chance(0x16, 0x2C, 0x36, 0x16, 0x16);
    std::string before = Make({bytes});
    bytes[at] = static_cast<BYTE>(bytes[at] ^ 0x01);
    bool counts = at % 3 == 2;
    EXPECT_EQ(Make({bytes}) != before, counts) << at;
  }
}

TEST_F(AccountPasswordTest, IsDrawnAgainUntilItHasAllClasses) {
  const Bytes good = Chance(0x16, 0x2C, 0x36, 0, 0);
  const std::vector<Bytes> bad = {
      Chance(0x00, 0x00, 0x00, 0x00, 0x00), Chance(0x16, 0x2C, 0x00, 0x2C, 0x16),
      Chance(0x16, 0x36, 0x3F, 0x16, 0x00), Chance(0x2C, 0x36, 0x35, 0x36, 0xC0),
      Chance(0x16, 0x16, 0x16, 0x16, 0x16), Chance(0x2C, 0x2C, 0x2C, 0x2C, 0x2C),
      Chance(0x36, 0x36, 0x36, 0x36, 0x36),
  };
  for (const Bytes& one : bad) {
    EXPECT_EQ(Make({one, good}), "aAAA0AAA!AAAAAAAAAAA");
    EXPECT_EQ(taken_, 2u) << TextOf(one);
  }
  std::deque<Bytes> many(500, bad[0]);
  many.push_back(good);
  EXPECT_EQ(Make(many), "aAAA0AAA!AAAAAAAAAAA");
  EXPECT_EQ(taken_, 501u);
  EXPECT_EQ(Make({good, good}), "aAAA0AAA!AAAAAAAAAAA");
  EXPECT_EQ(taken_, 1u);
}

TEST_F(AccountPasswordTest, WithoutAGuidTheSystemsErrorIsReturned) {
  EXPECT_EQ(Make({}, E_OUTOFMEMORY), "0x8007000e");
  EXPECT_EQ(Make({Chance(0, 0, 0, 0, 0)}, static_cast<HRESULT>(0x80070005)), "0x80070005");
  EXPECT_EQ(taken_, 1u);
}

TEST_F(AccountPasswordTest, IsClearedAtItsEnd) {
  using Destructor = void (*)(void*);
  auto destroy = reinterpret_cast<Destructor>(rig::FindInternal("_ZN15AccountPasswordD1Ev"));
  rig::GuardedBuffer memory(sizeof(AccountPassword));
  GUID chance;
  std::memcpy(&chance, Chance(0x16, 0x2C, 0x36, 0, 0).data(), sizeof chance);
  DrawOnce(chance);
  ASSERT_EQ(GenerateAccountPassword(memory.As<AccountPassword>()), S_OK);
  EXPECT_EQ(memory.Data()[0], 'a');
  destroy(memory.Data());
  for (size_t at = 0; at < memory.Size(); ++at) {
    EXPECT_EQ(memory.Data()[at], 0) << at;
  }
}

// Whoever has the GUID can compute the password.
TEST_F(AccountPasswordTest, ItsGuidDoesNotStayOnTheStack) {
  const Bytes chance = {0x91, 0x92, 0x57, 0x93, 0x94, 0xAD, 0x95, 0x96,
                        0xF7, 0x97, 0x98, 0x6A, 0x99, 0x9A, 0xB4, 0x9B};
  rig::GuardedBuffer memory(sizeof(AccountPassword));
  auto* password = memory.As<AccountPassword>();
  auto generate = GenerateAccountPassword.Get();
  for (bool succeeds : {true, false}) {
    int draws = 0;
    // The first GUID does not have all character classes. Each is written byte by byte, so that only the
    // library has it whole.
    HX_HOOK(hook, CoCreateGuid, [&](GUID* out) -> HRESULT {
      if (++draws > (succeeds ? 2 : 1)) return E_UNEXPECTED;
      auto* bytes = reinterpret_cast<volatile BYTE*>(out);
      for (size_t at = 0; at < chance.size(); ++at) bytes[at] = chance[at];
      if (draws == 1) bytes[8] = 0;
      return S_OK;
    });
    HRESULT result = E_FAIL;
    rig::OwnStack stack;
    stack.Run([&] { result = generate(password); });
    EXPECT_EQ(result, succeeds ? S_OK : E_UNEXPECTED);
    if (succeeds) EXPECT_EQ(rig::ToUtf8(password->text), TextOf(chance));
    for (size_t at = 2; at + 4 <= chance.size(); at += 3) {
      std::string_view piece(reinterpret_cast<const char*>(&chance[at]), 4);
      EXPECT_EQ(stack.Content().find(piece), std::string_view::npos) << "byte " << at;
    }
    for (size_t at = 0; at < kPasswordLength; at += 4) {
      const std::string group = TextOf(chance).substr(at, 4);
      std::string wide;
      for (char letter : group) wide += {letter, '\0'};
      EXPECT_EQ(stack.Content().find(group), std::string_view::npos) << group;
      EXPECT_EQ(stack.Content().find(wide), std::string_view::npos) << group;
    }
  }
}

// A sequence of numbers that is the same in every run.
class Numbers {
 public:
  uint64_t Next() {
    state_ += 0x9E3779B97F4A7C15ULL;
    uint64_t mixed = (state_ ^ state_ >> 30) * 0xBF58476D1CE4E5B9ULL;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBULL;
    return mixed ^ mixed >> 31;
  }

 private:
  uint64_t state_ = 20261115;
};

TEST_F(AccountPasswordTest, AMillionPasswordsMatchTheirBytes) {
  constexpr int kPasswords = 1000000;
  constexpr int kMostDraws = 1000;  // For one password; 100 would be enough.
  // The check uses only tables, because millions are drawn, also under emulation.
  constexpr unsigned kAll = 7;
  std::array<wchar_t, 64> letters = {};
  std::array<unsigned, 64> classes = {};
  for (unsigned number = 0; number < 64; ++number) {
    letters[number] = static_cast<wchar_t>(Letter(number));
    classes[number] = number < 22 ? 0 : number < 44 ? 1 : number < 54 ? 2 : 4;
  }
  Numbers numbers;
  BYTE bytes[sizeof(GUID)] = {};
  int draws = 0;
  int incomplete = 0;
  HX_HOOK(hook, CoCreateGuid, [&](GUID* out) -> HRESULT {
    if (++draws > kMostDraws) return E_UNEXPECTED;
    uint64_t halves[2] = {numbers.Next(), numbers.Next()};
    std::memcpy(bytes, halves, sizeof halves);
    std::memcpy(out, halves, sizeof halves);
    unsigned found = 0;
    for (size_t at = 2; at < sizeof bytes; at += 3) found |= classes[bytes[at] & 63];
    incomplete += found == kAll ? 0 : 1;
    return S_OK;
  });
  rig::GuardedBuffer memory(sizeof(AccountPassword));
  auto* password = memory.As<AccountPassword>();
  auto generate = GenerateAccountPassword.Get();
  std::array<int, 64> first = {};
  std::array<int, 4> second = {};
  int drawn = 0;
  int wrong = 0;
  for (int count = 0; count < kPasswords && wrong == 0; ++count) {
    for (wchar_t& letter : password->text) letter = L'?';
    int before = incomplete;
    draws = 0;
    wrong += generate(password) == S_OK ? 0 : 1;
    // Only draws with a missing class were discarded.
    wrong += draws == incomplete - before + 1 ? 0 : 1;
    drawn += draws;
    const wchar_t* text = password->text;
    for (size_t at = 2; at < sizeof bytes; at += 3, text += 4) {
      unsigned low = bytes[at] & 63;
      unsigned high = bytes[at] >> 6;
      bool isSame = text[0] == letters[low] && text[1] == letters[high] && text[2] == L'A' && text[3] == L'A';
      wrong += isSame ? 0 : 1;
      ++first[low];
      ++second[high];
    }
    wrong += *text == L'\0' ? 0 : 1;
    if (wrong != 0) ADD_FAILURE() << "password " << count << " does not match its bytes";
  }
  // Every character occurs.
  for (int times : first) EXPECT_GT(times, 0);
  for (int times : second) EXPECT_GT(times, 0);
  // About 23 in 100 draws have all classes.
  EXPECT_NEAR(static_cast<double>(kPasswords) / drawn, 0.234, 0.01);
}

}  // namespace account_password_test
