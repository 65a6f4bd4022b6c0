// The copy/move engine's option letters, by their effect in a made-up world.

#include <random>

#include "unit/files/tree_copy_tools.h"

namespace tree_copy_test {

class TreeOptionTest : public TreeCopyTest {
 protected:
  void SetUp() override {
    TreeCopyTest::SetUp();
    TheRig().On<::FindFirstFileW>([this](const wchar_t* name, WIN32_FIND_DATAW* found) {
      auto entry = names_.find(name);
      if (entry == names_.end()) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
      }
      *found = {};
      found->dwFileAttributes = entry->second;
      return reinterpret_cast<HANDLE>(0x4710);
    });
    TheRig().On<::FindClose>([](HANDLE) { return TRUE; });
    TheRig().On<::MoveFileW>([](const wchar_t*, const wchar_t*) { return TRUE; });
    TheRig().On<::CopyFileW>([](const wchar_t*, const wchar_t*, BOOL) { return TRUE; });
    TheRig().On<::DeleteFileW>([](const wchar_t*) { return TRUE; });
    TheRig().On<::CreateDirectoryW>([](const wchar_t*, SECURITY_ATTRIBUTES*) { return TRUE; });
  }

  /// True if the engine makes a call that begins with this text.
  bool Calls(const std::wstring& arguments, const std::string& call) {
    TheRig().trace.Clear();
    TreeCopyMove(arguments.c_str());
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.find(call) == 0) return true;
    }
    return false;
  }

  /// Returns the option bits that groups of letters set.
  DWORD Bits(const std::wstring& groups) {
    constexpr DWORD kFile = FILE_ATTRIBUTE_ARCHIVE;
    DWORD bits = 0;
    names_ = {{L"Q:\\s", kFile}};
    if (Calls(L"x " + groups + L" -u Q:\\s Q:\\t", "MoveFileW")) bits |= kTreeMove;
    if (Calls(L"x " + groups + L" -c Q:\\s Q:\\t", "CreateDirectoryW")) bits |= kTreeCreateTarget;
    if (Calls(L"x " + groups + L" -uc Q:\\none Q:\\s Q:\\t", "CopyFileW")) bits |= kTreeIgnoreErrors;
    names_[L"Q:\\t"] = kFile;
    if (Calls(L"x " + groups + L" -cu Q:\\s Q:\\t", "CopyFileW")) bits |= kTreeOverwrite;
    if (Calls(L"x " + groups + L" -cuo Q:\\s Q:\\t", "wsprintfW")) bits |= kTreeKeepAside;
    names_ = {{L"Q:\\s", FILE_ATTRIBUTE_DIRECTORY}};
    if (Calls(L"x " + groups + L" -cug Q:\\s Q:\\t", "CreateDirectoryW")) bits |= kTreeRecurse;
    names_ = {{L"Q:\\s", kFile | FILE_ATTRIBUTE_REPARSE_POINT}};
    if (!Calls(L"x " + groups + L" -cu Q:\\s Q:\\t", "CopyFileW")) bits |= kTreeKeepLinks;
    return bits;
  }

  std::map<std::wstring, DWORD> names_;
};

/// The effect of each letter, as bits set and cleared.
struct Letter {
  wchar_t letter;
  DWORD sets, clears;
};
constexpr Letter kLetters[] = {
    {L'm', 1, 0},  {L'c', 0, 1},  {L'o', 2, 0},  {L'k', 0, 2},   {L'b', 4, 0},
    {L'i', 8, 0},  {L'e', 0, 8},  {L'r', 16, 0}, {L'f', 0, 16},  {L'n', 32, 0},
    {L'u', 0, 32}, {L'l', 64, 0}, {L'g', 0, 64}, {L'z', 0, 127}, {L'M', 0, 0},
    {L'Z', 0, 0},  {L'x', 0, 0},  {L'-', 0, 0},  {L'1', 0, 0},   {L'\u00E9', 0, 0},
};

TEST_F(TreeOptionTest, LettersSetAndClear) {
  ASSERT_EQ(Bits(L""), 0u);
  ASSERT_EQ(Bits(L"-mobirnl"), 127u);
  ASSERT_EQ(Bits(L"-"), 0u);
  for (const Letter& one : kLetters) {
    EXPECT_EQ(Bits(std::wstring(L"-") + one.letter), one.sets) << rig::ToUtf8(std::wstring(1, one.letter));
    EXPECT_EQ(Bits(std::wstring(L"-mobirnl") + one.letter), 127u & ~one.clears)
        << rig::ToUtf8(std::wstring(1, one.letter));
  }
}

TEST_F(TreeOptionTest, RandomGroupsComeToTheirLetters) {
  constexpr unsigned kSeed = 20264;
  std::mt19937 random(kSeed);
  for (int one = 0; one < 300; ++one) {
    std::wstring groups = L"-";
    DWORD bits = 0;
    for (unsigned left = random() % 9; left > 0; --left) {
      const Letter& letter = kLetters[random() % std::size(kLetters)];
      bits = (bits & ~letter.clears) | letter.sets;
      groups += letter.letter;
      if (random() % 4 == 0) groups += L" -";
    }
    ASSERT_EQ(Bits(groups), bits) << "seed " << kSeed << ": " << rig::ToUtf8(groups);
  }
}

}  // namespace tree_copy_test
