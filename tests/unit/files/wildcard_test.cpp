// Names and patterns: single cases, and random ones compared with a matcher by dynamic programming.

#include "files/wildcard.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "rig/internals_test.h"

namespace wildcard_test {

HX_INTERNAL(MatchWildcard);
HX_INTERNAL(MatchWildcardA);

class WildcardTest : public rig::InternalsTest {};

/// Calls both forms of the operation on guarded copies; they must agree.
bool Match(const std::wstring& name, const std::string& pattern) {
  rig::GuardedBuffer wide = rig::GuardedBuffer::Of(std::wstring_view(name));
  rig::GuardedBuffer narrow = rig::GuardedBuffer::Of(std::string_view(rig::ToUtf8(name)));
  rig::GuardedBuffer wanted = rig::GuardedBuffer::Of(std::string_view(pattern));
  int matches = MatchWildcard(wide.As<wchar_t>(), wanted.Data());
  EXPECT_EQ(MatchWildcardA(narrow.Data(), wanted.Data()), matches) << rig::ToUtf8(name) << " : " << pattern;
  EXPECT_TRUE(matches == 0 || matches == 1);
  return matches == 1;
}

TEST_F(WildcardTest, PlainNamesMatchWithoutRegardToTheCaseOfAscii) {
  EXPECT_TRUE(Match(L"Server.INI", "sERVER.ini"));
  EXPECT_FALSE(Match(L"Server.INI", "Server.IN"));
  EXPECT_FALSE(Match(L"Server.IN", "Server.INI"));
  EXPECT_FALSE(Match(L"\u00C9", "\u00E9"));
  EXPECT_TRUE(Match(L"\u00E9", "\u00E9"));
  // Neighbours of the letters are not letters.
  EXPECT_FALSE(Match(L"@", "`"));
  EXPECT_FALSE(Match(L"[", "{"));
}

TEST_F(WildcardTest, AsterisksMatchRuns) {
  EXPECT_TRUE(Match(L"", "*"));
  EXPECT_TRUE(Match(L"abc", "***"));
  EXPECT_TRUE(Match(L"abc", "a*"));
  EXPECT_TRUE(Match(L"abc", "*c"));
  EXPECT_TRUE(Match(L"abcabd", "a*b?"));
  EXPECT_TRUE(Match(L"aab", "*ab"));
  EXPECT_FALSE(Match(L"abc", "*b"));
  EXPECT_TRUE(Match(L"a*c", "a*c"));
}

TEST_F(WildcardTest, AQuestionMarkIsOneUnit) {
  EXPECT_TRUE(Match(L"\u00E9", "?"));
  EXPECT_FALSE(Match(L"", "?"));
  EXPECT_FALSE(Match(L"ab", "?"));
  EXPECT_TRUE(Match(L"\xD83D\xDE00", "??"));
  EXPECT_FALSE(Match(L"\xD83D\xDE00", "?"));
  EXPECT_TRUE(Match(L"x\xD83D\xDE00y", "x\U0001F600y"));
}

TEST_F(WildcardTest, TheRestOfThePatternMayBeAsterisksAndDots) {
  EXPECT_TRUE(Match(L"name", "*.*"));
  EXPECT_TRUE(Match(L"name", "name.*"));
  EXPECT_TRUE(Match(L"name", "name..*.*"));
  EXPECT_TRUE(Match(L"name", "name."));
  EXPECT_TRUE(Match(L"", "."));
  EXPECT_TRUE(Match(L"", ""));
  EXPECT_FALSE(Match(L"name", "name.?"));
  EXPECT_FALSE(Match(L"name", "name.*x"));
  EXPECT_FALSE(Match(L"name", ""));
}

TEST_F(WildcardTest, NullPatternsAndNames) {
  EXPECT_EQ(MatchWildcard(L"name", nullptr), 1);
  EXPECT_EQ(MatchWildcard(nullptr, nullptr), 1);
  EXPECT_EQ(MatchWildcard(nullptr, "*"), 0);
  EXPECT_EQ(MatchWildcardA("name", nullptr), 1);
  EXPECT_EQ(MatchWildcardA(nullptr, nullptr), 1);
  EXPECT_EQ(MatchWildcardA(nullptr, "*"), 0);
}

TEST_F(WildcardTest, BytesThatAreNotUtf8AreCharactersOfTheirNumber) {
  auto match = [](const wchar_t* name, const std::string& pattern) {
    rig::GuardedBuffer wanted = rig::GuardedBuffer::Of(std::string_view(pattern));
    return MatchWildcard(name, wanted.Data()) == 1;
  };
  EXPECT_TRUE(match(L"\u00E9", "\xE9"));
  EXPECT_TRUE(match(L"\u00E9x", "\xE9x"));
  EXPECT_TRUE(match(L"\u00F0\u0090", "\xF0\x90"));
  EXPECT_TRUE(match(L"\u00C0\u0080", "\xC0\x80"));
  EXPECT_FALSE(match(L"\u00E9", "\xC3"));
}

TEST_F(WildcardTest, TheLastCharacterIsTheLastOne) {
  EXPECT_TRUE(Match(L"\xDBFF\xDFFF", "\xF4\x8F\xBF\xBF"));
  // One more is no character, so its bytes are four.
  rig::GuardedBuffer wanted = rig::GuardedBuffer::Of(std::string_view("\xF4\x90\x80\x80"));
  EXPECT_EQ(MatchWildcard(L"\u00F4\u0090\u0080\u0080", wanted.Data()), 1);
  EXPECT_EQ(MatchWildcard(L"\xDC00\xDC00", wanted.Data()), 0);
}

// Matches by a table over all prefixes of the pattern's and the name's units.
bool ModelMatches(const std::wstring& name, const std::wstring& pattern) {
  auto fold = [](wchar_t unit) { return unit >= L'a' && unit <= L'z' ? unit - 32 : unit; };
  // reached[i]: the pattern so far matches the first i units of the name.
  std::vector<bool> reached(name.size() + 1, false);
  reached[0] = true;
  bool matches = false;
  for (size_t at = 0; at <= pattern.size(); ++at) {
    bool onlyEndLeft = pattern.find_first_not_of(L"*.", at) == std::wstring::npos;
    matches = matches || (reached[name.size()] && onlyEndLeft);
    if (at == pattern.size()) break;
    std::vector<bool> next(name.size() + 1, false);
    for (size_t i = 0; i <= name.size(); ++i) {
      if (pattern[at] == L'*') {
        next[i] = reached[i] || (i > 0 && next[i - 1]);
      } else if (i > 0 && reached[i - 1]) {
        next[i] = pattern[at] == L'?' || fold(pattern[at]) == fold(name[i - 1]);
      }
    }
    reached = next;
  }
  return matches;
}

TEST_F(WildcardTest, AgreesWithATableOverAllPrefixes) {
  constexpr unsigned kSeed = 20261;
  std::mt19937 random(kSeed);
  const std::wstring nameUnits[] = {L"a", L"b", L"A", L".", L"\u00E9", L"\u4E2D", L"\xD83D\xDE00", L"*"};
  const std::wstring patternUnits[] = {L"a", L"b", L"B",      L".",      L"*",
                                       L"*", L"?", L"\u00E9", L"\u4E2D", L"\xD83D\xDE00"};
  int matched = 0;
  constexpr int kCases = 30000;
  for (int one = 0; one < kCases; ++one) {
    std::wstring name, pattern;
    for (unsigned left = random() % 9; left > 0; --left) name += nameUnits[random() % std::size(nameUnits)];
    for (unsigned left = random() % 7; left > 0; --left) {
      pattern += patternUnits[random() % std::size(patternUnits)];
    }
    bool expected = ModelMatches(name, pattern);
    matched += expected ? 1 : 0;
    ASSERT_EQ(Match(name, rig::ToUtf8(pattern)), expected)
        << "seed " << kSeed << ", case " << one << ": " << rig::ToUtf8(name) << " : " << rig::ToUtf8(pattern);
  }
  EXPECT_GT(matched, kCases / 20);
  EXPECT_LT(matched, kCases - kCases / 20);
}

TEST_F(WildcardTest, ManyAsterisksTakeBoundedTime) {
  std::wstring name(5000, L'a');
  std::string pattern;
  for (int star = 0; star < 1000; ++star) pattern += "a*";
  pattern += "b";
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Match(name, pattern));
  EXPECT_FALSE(Match(name, "*" + pattern));
  EXPECT_TRUE(Match(name + L"b", pattern));
  // Without a bound this would practically never end.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace wildcard_test
