// The standard folders: for every tag the questions in their order, and the result of each failure.

#include "files/standard_folders.h"

#include <shlobj.h>

#include <set>

#include "unit/files/tree_tools.h"

namespace standard_folders_test {

using Lines = std::vector<std::string>;
using tree_test::OwnPath;

HX_INTERNAL(GetStandardFolder);

/// One way to find a folder: the question to Windows.
enum Way {
  kCurrent,
  kProgram,
  kKnownUsers,
  kKnownX64,
  kKnownX86,
  kRoaming,
  kLocal,
  kAllUsers,
  kPrograms,
  kProgramsX86,
  kCommon,
  kSystem,
  kMachineWindows,
  kWindows,
  kTemporary,
};

/// The function that a way calls.
struct WayCalls {
  const char* module;    ///< the module of a function found by name, else null
  const char* function;  ///< the function's name
  int folder;            ///< the CSIDL, -1 if there is none
  const GUID* id;        ///< the identifier, or null
  const char* text;      ///< its answer
  const char* call;      ///< its call in the trace
};

const std::map<Way, WayCalls> kWays = {
    {kCurrent, {nullptr, "GetCurrentDirectoryW", -1, nullptr, "D:\\Now", "GetCurrentDirectoryW(260, *) = "}},
    {kProgram,
     {nullptr, "GetModuleFileNameW", -1, nullptr, "D:\\Setup\\setup.exe",
      "GetModuleFileNameW(null, *, 260) = "}},
    {kKnownUsers,
     {"SHELL32", "SHGetKnownFolderPath", -1, &FOLDERID_UserProfiles, "D:\\Users",
      "SHGetKnownFolderPath({0762D272-C50A-4BB0-A382-697DCD729B80}, 0, null, *) = "}},
    {kKnownX64,
     {"SHELL32", "SHGetKnownFolderPath", -1, &FOLDERID_ProgramFilesX64, "D:\\Known 64",
      "SHGetKnownFolderPath({6D809377-6AF0-444B-8957-A3773F02200E}, 0, null, *) = "}},
    {kKnownX86,
     {"SHELL32", "SHGetKnownFolderPath", -1, &FOLDERID_ProgramFilesX86, "D:\\Known 32",
      "SHGetKnownFolderPath({7C5A40EF-A0FB-4BFC-874A-C0F2E0B9FA8E}, 0, null, *) = "}},
    {kRoaming,
     {"SHFOLDER", "SHGetFolderPathW", 26, nullptr, "D:\\Roaming",
      "SHGetFolderPathW(null, 26, null, 0, *) = "}},
    {kLocal,
     {"SHFOLDER", "SHGetFolderPathW", 28, nullptr, "D:\\Local", "SHGetFolderPathW(null, 28, null, 0, *) = "}},
    {kAllUsers,
     {"SHFOLDER", "SHGetFolderPathW", 35, nullptr, "D:\\All", "SHGetFolderPathW(null, 35, null, 0, *) = "}},
    {kPrograms,
     {"SHFOLDER", "SHGetFolderPathW", 38, nullptr, "D:\\Programs",
      "SHGetFolderPathW(null, 38, null, 0, *) = "}},
    {kProgramsX86,
     {"SHFOLDER", "SHGetFolderPathW", 42, nullptr, "D:\\Programs 32",
      "SHGetFolderPathW(null, 42, null, 0, *) = "}},
    {kCommon,
     {"SHFOLDER", "SHGetFolderPathW", 43, nullptr, "D:\\Common",
      "SHGetFolderPathW(null, 43, null, 0, *) = "}},
    {kSystem,
     {nullptr, "GetSystemDirectoryW", -1, nullptr, "D:\\Win\\system32", "GetSystemDirectoryW(*, 260) = "}},
    {kMachineWindows,
     {"KERNEL32", "GetSystemWindowsDirectoryW", -1, nullptr, "D:\\Machine",
      "GetSystemWindowsDirectoryW(*, 260) = "}},
    {kWindows, {nullptr, "GetWindowsDirectoryW", -1, nullptr, "D:\\Win", "GetWindowsDirectoryW(*, 260) = "}},
    {kTemporary, {nullptr, "GetTempPathW", -1, nullptr, "D:\\Temp\\", "GetTempPathW(260, *) = "}},
};

/// One question for a tag's folder and the folder that its answer gives.
struct Step {
  Way way;
  const wchar_t* folder;
};

/// A tag with its questions.
struct Row {
  const char* tag;
  std::vector<Step> steps;
};

const Row kRows[] = {
    {"curr", {{kCurrent, L"D:\\Now"}}},
    {"proc", {{kProgram, L"D:\\Setup"}}},
    {"user", {{kKnownUsers, L"D:\\Users"}, {kSystem, L"D:\\Users"}}},
    {"pr64", {{kKnownX64, L"D:\\Known 64"}, {kPrograms, L"D:\\Programs"}, {kWindows, L"D:\\Win"}}},
    {"pr32", {{kKnownX86, L"D:\\Known 32"}, {kProgramsX86, L"D:\\Programs 32"}, {kWindows, L"D:\\Win"}}},
    {"prog", {{kPrograms, L"D:\\Programs"}, {kWindows, L"D:\\Win"}}},
    {"comn", {{kCommon, L"D:\\Common"}, {kPrograms, L"D:\\Programs\\Common Files"}, {kWindows, L"D:\\Win"}}},
    {"rsup", {{kRoaming, L"D:\\Roaming"}, {kWindows, L"D:\\Win"}}},
    {"sprf", {{kAllUsers, L"D:\\All"}, {kWindows, L"D:\\Win"}}},
    {"asup", {{kAllUsers, L"D:\\All"}, {kWindows, L"D:\\Win"}}},
    {"slog", {{kAllUsers, L"D:\\All"}, {kTemporary, L"D:\\Temp"}}},
    {"pref", {{kLocal, L"D:\\Local"}, {kWindows, L"D:\\Win"}}},
    {"cach", {{kLocal, L"D:\\Local"}, {kWindows, L"D:\\Win"}}},
    {"lsup", {{kLocal, L"D:\\Local"}, {kWindows, L"D:\\Win"}}},
    {"sdrv", {{kSystem, L"D:\\"}}},
    {"swin", {{kMachineWindows, L"D:\\Machine"}, {kWindows, L"D:\\Win"}}},
    {"extn", {{kSystem, L"D:\\Win\\system32"}}},
    {"temp", {{kTemporary, L"D:\\Temp"}}},
    {"logs", {{kTemporary, L"D:\\Temp"}}},
    {"fnts", {{kWindows, L"D:\\Win"}}},
    // Case matters in tags.
    {"PREF", {{kWindows, L"D:\\Win"}}},
};

/// Returns the tag's value: its letters in memory order.
DWORD TagOf(const char* tag) {
  DWORD value;
  memcpy(&value, tag, sizeof value);
  return value;
}

/// How a way fails.
enum class Failure {
  kFails,            ///< The function fails.
  kEmpty,            ///< The function returns an empty text.
  kMissingFunction,  ///< The function is missing from its module.
  kMissingModule,    ///< The module is missing.
};

/// Standard folders in a world whose folders are all on drive D, which is empty.
class StandardFoldersTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override {
    text_.clear();
    lookedUp_.clear();
    world.errorMode.mode = 0x4000;
    for (const auto& [way, calls] : kWays) {
      text_[calls.function] = rig::ToWide(calls.text);
      if (calls.id != nullptr) world.shell.Set(*calls.id, rig::ToWide(calls.text));
      if (calls.folder >= 0) world.shell.Set(calls.folder, rig::ToWide(calls.text));
    }
    auto fill = [this](const char* name, wchar_t* buffer, DWORD size) {
      const std::wstring& text = text_[name];
      if (text.size() >= size) return static_cast<DWORD>(text.size() + 1);
      wcscpy(buffer, text.c_str());
      return static_cast<DWORD>(text.size());
    };
    world.On<::GetCurrentDirectoryW>(
        [=](DWORD size, wchar_t* buffer) { return fill("GetCurrentDirectoryW", buffer, size); });
    world.On<::GetModuleFileNameW>([=](HMODULE, wchar_t* buffer, DWORD size) {
      DWORD length = fill("GetModuleFileNameW", buffer, size);
      return length > size ? size : length;
    });
    world.On<::GetSystemDirectoryW>(
        [=](wchar_t* buffer, UINT size) { return fill("GetSystemDirectoryW", buffer, size); });
    world.On<::GetSystemWindowsDirectoryW>(
        [=](wchar_t* buffer, UINT size) { return fill("GetSystemWindowsDirectoryW", buffer, size); });
    world.On<::GetWindowsDirectoryW>(
        [=](wchar_t* buffer, UINT size) { return fill("GetWindowsDirectoryW", buffer, size); });
    world.On<::GetTempPathW>([=](DWORD size, wchar_t* buffer) { return fill("GetTempPathW", buffer, size); });
    // Another test covers the spelling on the disk.
    world.On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) { return INVALID_HANDLE_VALUE; });
  }

  /// Makes a way fail.
  void Break(Way way, Failure failure) {
    const WayCalls& calls = kWays.at(way);
    switch (failure) {
      case Failure::kFails:
        text_[calls.function].clear();
        if (calls.id != nullptr) TheWorld().shell.Fail(*calls.id);
        if (calls.folder >= 0) TheWorld().shell.Fail(calls.folder);
        break;
      case Failure::kEmpty:
        if (calls.id != nullptr) TheWorld().shell.Set(*calls.id, L"");
        if (calls.folder >= 0) TheWorld().shell.Set(calls.folder, L"");
        break;
      case Failure::kMissingFunction:
        TheModules().MissingFunction(calls.module, calls.function);
        break;
      case Failure::kMissingModule:
        TheModules().Missing(calls.module);
        break;
    }
  }

  /// The trace lines of looking up a way's function, if it was not looked up before.
  void ExpectLookUp(const WayCalls& calls, const Failure* failure, Lines* lines) {
    if (calls.module == nullptr || !lookedUp_.insert(calls.function).second) return;
    std::string module = calls.module;
    bool hasModule = failure == nullptr || *failure != Failure::kMissingModule;
    bool hasFunction = failure == nullptr || *failure != Failure::kMissingFunction;
    std::string handle = hasModule ? module : "null";
    std::string find =
        "GetProcAddress(" + module + ", \"" + calls.function + "\") = " + (hasFunction ? "*" : "null");
    lines->push_back("SetErrorMode(0x8001) = 16384");
    if (module == "KERNEL32") {
      lines->push_back("GetModuleHandleA(\"KERNEL32\") = " + handle);
      if (hasModule) lines->push_back(find);
      lines->push_back("SetErrorMode(0x4000) = 32769");
      return;
    }
    lines->push_back("LoadLibraryA(\"" + module + "\") = " + handle);
    lines->push_back("SetErrorMode(0x4000) = 32769");
    if (!hasModule) return;
    lines->push_back(find);
    if (hasFunction) {
      TheRig().ledger.Deliberate(rig::kModule, module);
    } else {
      lines->push_back("FreeLibrary(" + module + ") = 1");
    }
  }

  /// The trace lines of asking one way; `failure` is null if it answers.
  void ExpectWay(Way way, const Failure* failure, Lines* lines) {
    const WayCalls& calls = kWays.at(way);
    ExpectLookUp(calls, failure, lines);
    if (failure != nullptr && *failure >= Failure::kMissingFunction) return;
    std::string result = std::to_string(failure == nullptr ? strlen(calls.text) : 0);
    if (calls.id != nullptr || calls.folder >= 0) {
      result = failure != nullptr && *failure == Failure::kFails ? "0x80004005" : "0";
    }
    lines->push_back(calls.call + result);
    if (calls.id != nullptr && result == "0") {
      lines->push_back("CoTaskMemFree(task-memory#" + std::to_string(++taskMemory_) + ")");
    }
  }

  /// The calls so far without the look-ups of names on the disk.
  Lines Calls() {
    Lines lines;
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.find("FindFirstFileW(") != 0) lines.push_back(line);
    }
    TheRig().trace.Clear();
    // Joining "Common Files" looks up its spelling, with message boxes suppressed.
    const Lines quiet = {"SetErrorMode(0x8001) = 16384", "SetErrorMode(0x4000) = 32769"};
    for (size_t at = 0; at + 1 < lines.size();) {
      if (lines[at] == quiet[0] && lines[at + 1] == quiet[1]) {
        lines.erase(lines.begin() + static_cast<ptrdiff_t>(at),
                    lines.begin() + static_cast<ptrdiff_t>(at + 2));
      } else {
        ++at;
      }
    }
    return lines;
  }

  /// Asks for the row's folder while its first `broken` ways fail with `failure`; compares the folder and the
  /// calls.
  void Check(const Row& row, size_t broken, Failure failure) {
    SCOPED_TRACE(std::string(row.tag) + " with " + std::to_string(broken) + " ways broken");
    Lines expected;
    std::wstring folder = L"<none>";
    for (size_t at = 0; at < row.steps.size(); ++at) {
      ExpectWay(row.steps[at].way, at < broken ? &failure : nullptr, &expected);
      if (at >= broken) {
        folder = row.steps[at].folder;
        break;
      }
    }
    OwnPath found(GetStandardFolder(TagOf(row.tag)));
    EXPECT_EQ(found.Text(), folder);
    rig::CompareLines(__FILE__, __LINE__, "trace", expected, Calls());
    if (found) {
      EXPECT_EQ(found.get()->parent == nullptr, folder.find(L"\\Common Files") == std::wstring::npos);
    }
  }

  std::map<std::string, std::wstring> text_;
  std::set<std::string> lookedUp_;
  int taskMemory_ = 0;
};

class StandardFolderRow : public StandardFoldersTest, public testing::WithParamInterface<Row> {};

TEST_P(StandardFolderRow, AsksInOrderAndOnce) {
  // One more way fails each time; functions that were looked up stay bound.
  const Row& row = GetParam();
  Check(row, 0, Failure::kFails);
  for (size_t broken = 1; broken <= row.steps.size(); ++broken) {
    Break(row.steps[broken - 1].way, Failure::kFails);
    Check(row, broken, Failure::kFails);
  }
}

TEST_P(StandardFolderRow, WaysWithoutTheirFunctionAreNotTriedAgain) {
  const Row& row = GetParam();
  size_t broken = 0;
  for (const Step& step : row.steps) {
    if (kWays.at(step.way).module == nullptr) break;
    Break(step.way, Failure::kMissingFunction);
    ++broken;
  }
  Check(row, broken, Failure::kMissingFunction);
  Check(row, broken, Failure::kMissingFunction);
}

TEST_P(StandardFolderRow, WaysWithoutTheirModuleAreNotTriedAgain) {
  const Row& row = GetParam();
  size_t broken = 0;
  for (const Step& step : row.steps) {
    if (kWays.at(step.way).module == nullptr) break;
    Break(step.way, Failure::kMissingModule);
    ++broken;
  }
  Check(row, broken, Failure::kMissingModule);
  Check(row, broken, Failure::kMissingModule);
}

TEST_P(StandardFolderRow, SurvivesEveryFailure) {
  DWORD tag = TagOf(GetParam().tag);
  rig::SweepOptions options;
  options.results = {0, 1};
  EXPECT_GE(FailEachCall(
                [tag](rig::Scene& scene) {
                  PathObject* folder = GetStandardFolder(tag);
                  // Kept until the process ends if they were found.
                  for (const char* module : {"SHELL32", "SHFOLDER"}) {
                    for (uint64_t held : scene.rig.ledger.Values(rig::kModule)) {
                      if (scene.rig.ledger.NameOf(rig::kModule, held) == module) {
                        scene.rig.ledger.Deliberate(rig::kModule, module);
                      }
                    }
                  }
                  UINT found = folder == nullptr ? 0 : 1;
                  OwnPath release(folder);
                  return found;
                },
                {}, options),
            2u);
}

INSTANTIATE_TEST_SUITE_P(Tags, StandardFolderRow, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<Row>& row) {
                           std::string tag = row.param.tag;
                           return tag == "PREF" ? "capitals" : tag;
                         });

TEST_F(StandardFoldersTest, AnEmptyShellFolderCountsAsFailure) {
  for (const Row& row : kRows) {
    size_t broken = 0;
    for (const Step& step : row.steps) {
      if (kWays.at(step.way).folder < 0) break;
      Break(step.way, Failure::kEmpty);
      ++broken;
    }
    Check(row, broken, Failure::kEmpty);
  }
}

TEST_F(StandardFoldersTest, AnEmptyKnownFolderGivesNull) {
  Break(kKnownUsers, Failure::kEmpty);
  OwnPath folder(GetStandardFolder(TagOf("user")));
  EXPECT_FALSE(folder);
  std::vector<std::string> lines = Calls();
  EXPECT_EQ(lines.back(), "CoTaskMemFree(task-memory#1)");
  TheRig().ledger.Deliberate(rig::kModule, "SHELL32");
}

TEST_F(StandardFoldersTest, EachLibraryIsTriedForItself) {
  TheModules().Missing("SHELL32");
  TheModules().MissingFunction("KERNEL32", "GetSystemWindowsDirectoryW");
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("pr64"))).Text(), L"D:\\Programs");
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("swin"))).Text(), L"D:\\Win");
  Calls();
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("swin"))).Text(), L"D:\\Win");
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("user"))).Text(), L"D:\\Users");
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("pr32"))).Text(), L"D:\\Programs 32");
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("lsup"))).Text(), L"D:\\Local");
  rig::CompareLines(__FILE__, __LINE__, "trace",
                    {
                        "GetWindowsDirectoryW(*, 260) = 6",
                        "GetSystemDirectoryW(*, 260) = 15",
                        "SHGetFolderPathW(null, 42, null, 0, *) = 0",
                        "SHGetFolderPathW(null, 28, null, 0, *) = 0",
                    },
                    Calls());
  TheRig().ledger.Deliberate(rig::kModule, "SHFOLDER");
}

TEST_F(StandardFoldersTest, ASystemFolderWithoutADriveIsReturnedUnchanged) {
  Break(kKnownUsers, Failure::kFails);
  TheRig().ledger.Deliberate(rig::kModule, "SHELL32");
  text_["GetSystemDirectoryW"] = L"\\\\server\\win\\system32";
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("user"))).Text(), L"\\\\server\\win\\system32");
}

TEST_F(StandardFoldersTest, FoldersAreCutFromTheirPrograms) {
  text_["GetModuleFileNameW"] = L"D:\\setup.exe";
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("proc"))).Text(), L"D:\\");
  text_["GetModuleFileNameW"] = L"setup.exe";
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("proc"))).Text(), L"<none>");
}

TEST_F(StandardFoldersTest, AFolderThatDoesNotFitCountsAsFailure) {
  std::wstring longest = L"D:\\" + std::wstring(256, L'x');
  text_["GetCurrentDirectoryW"] = longest;
  EXPECT_EQ(OwnPath(GetStandardFolder(TagOf("curr"))).Text(), longest);
  for (const char* function : {"GetCurrentDirectoryW", "GetModuleFileNameW", "GetSystemDirectoryW",
                               "GetSystemWindowsDirectoryW", "GetTempPathW", "GetWindowsDirectoryW"}) {
    text_[function] = longest + L"\\x";
  }
  for (const char* tag : {"curr", "proc", "sdrv", "extn", "temp", "logs", "swin", "fnts"}) {
    EXPECT_EQ(OwnPath(GetStandardFolder(TagOf(tag))).Text(), L"<none>") << tag;
  }
}

TEST_F(StandardFoldersTest, FoldersAreWideText) {
  TheWorld().shell.Set(CSIDL_LOCAL_APPDATA, L"D:\\\u00C9t\u00E9\\\u4E2D");
  OwnPath folder(GetStandardFolder(TagOf("cach")));
  EXPECT_EQ(folder.Text(), L"D:\\\u00C9t\u00E9\\\u4E2D");
  EXPECT_EQ(folder.get()->parent, nullptr);
  TheRig().ledger.Deliberate(rig::kModule, "SHFOLDER");
}

/// With the real Windows.
class RealStandardFoldersTest : public rig::RiggedInternalsTest {};

TEST_F(RealStandardFoldersTest, Exist) {
  for (const auto& [way, calls] : kWays) TheWorld().UseReal(calls.function);
  TheWorld().UseReal("CoTaskMemFree");
  for (const Row& row : kRows) {
    OwnPath folder(GetStandardFolder(TagOf(row.tag)));
    ASSERT_TRUE(folder) << row.tag;
    EXPECT_NE(GetFileAttributesW(folder.Text().c_str()), INVALID_FILE_ATTRIBUTES)
        << row.tag << ": " << rig::ToUtf8(folder.Text());
  }
  TheRig().ledger.Deliberate(rig::kModule, "SHELL32");
  TheRig().ledger.Deliberate(rig::kModule, "SHFOLDER");
}

}  // namespace standard_folders_test
