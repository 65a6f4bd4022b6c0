// Code that actions share: properties, folder properties, the client's programs, log lines, rollback.

#include "frame/session.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "base/heap.h"
#include "files/standard_folders.h"
#include "rig/action_test.h"
#include "rig/internals.h"

namespace session_test {

HX_INTERNAL(ReadPropertyW);
HX_INTERNAL(ReadPropertyA);
HX_INTERNAL(SetDirectoryProperty);
HX_INTERNAL(ResolveClientProgramPath);
HX_INTERNAL(LogSetupMessage);
HX_INTERNAL(LogSetupTextW);
HX_INTERNAL(IsRollback);
HX_INTERNAL(PathMake);
HX_INTERNAL(GetStandardFolder);
HX_INTERNAL(HeapFreeSafe);

class SessionTest : public rig::RiggedInternalsTest {
 protected:
  MSIHANDLE Session() { return TheRig().session; }

  // Copies a heap string of the library and frees it.
  template <class Char>
  static std::basic_string<Char> Take(Char* text) {
    if (!text) return {};
    std::basic_string<Char> copy(text);
    HeapFreeSafe(text);
    return copy;
  }

  static void Release(PathObject* path) {
    if (path) path->ops.Release(path);
  }
};

// ---- properties

class PropertyTest : public SessionTest {};

TEST_F(PropertyTest, ShortValuesAreReadAtOnce) {
  Installer().Set("PROP_SITE", "Lund");
  EXPECT_EQ(Take(ReadPropertyW(Session(), L"PROP_SITE")), L"Lund");
  EXPECT_EQ(Take(ReadPropertyA(Session(), "PROP_SITE")), "Lund");
  EXPECT_TRACE({
      R"(MsiGetPropertyW(session, "PROP_SITE", *, *) = 0)",
      R"(MsiGetPropertyA(session, "PROP_SITE", *, *) = 0)",
  });
}

TEST_F(PropertyTest, AnUnsetPropertyIsAnEmptyString) {
  wchar_t* wide = ReadPropertyW(Session(), L"PROP_SITE");
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(*wide, L'\0');
  HeapFreeSafe(wide);
  char* narrow = ReadPropertyA(Session(), "PROP_SITE");
  ASSERT_NE(narrow, nullptr);
  EXPECT_EQ(*narrow, '\0');
  HeapFreeSafe(narrow);
}

TEST_F(PropertyTest, TheBufferGrowsToTheNeededLengthAndSixteenMore) {
  std::vector<DWORD> counts;
  TheWorld().On<::MsiGetPropertyW>([&](MSIHANDLE, LPCWSTR, LPWSTR buffer, LPDWORD count) -> UINT {
    counts.push_back(*count);
    DWORD room = *count;
    *count = 300;
    if (room <= 300) return ERROR_MORE_DATA;
    // Fills all the room that the library states, so that a smaller buffer is found.
    for (DWORD i = 0; i < room; ++i) buffer[i] = i < 300 ? L'v' : L'\0';
    return ERROR_SUCCESS;
  });
  EXPECT_EQ(Take(ReadPropertyW(Session(), L"PROP_SITE")), std::wstring(300, L'v'));
  EXPECT_EQ(counts, (std::vector<DWORD>{256, 316}));
}

TEST_F(PropertyTest, ValuesAroundTheFirstBufferAreReadWhole) {
  for (size_t length : {254u, 255u, 256u, 257u, 271u, 272u, 5000u}) {
    SCOPED_TRACE(length);
    TheRig().trace.Clear();
    Installer().Set("PROP_SITE", std::string(length, 'v'));
    EXPECT_EQ(Take(ReadPropertyW(Session(), L"PROP_SITE")), std::wstring(length, L'v'));
    EXPECT_EQ(Take(ReadPropertyA(Session(), "PROP_SITE")), std::string(length, 'v'));
    // A value is read a second time only if it does not fit into 255 characters.
    EXPECT_EQ(TheRig().trace.Lines().size(), length > 255 ? 4u : 2u);
  }
}

TEST_F(PropertyTest, AValueThatGrowsBetweenTwoReadsIsReadAgain) {
  std::vector<DWORD> rooms;
  TheWorld().On<::MsiGetPropertyA>([&](MSIHANDLE, LPCSTR, LPSTR buffer, LPDWORD count) -> UINT {
    rooms.push_back(*count);
    DWORD length = rooms.size() == 1 ? 300 : 400;
    bool fits = length < *count;
    if (fits) {
      memset(buffer, 'g', length);
      buffer[length] = '\0';
    }
    *count = length;
    return fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
  });
  EXPECT_EQ(Take(ReadPropertyA(Session(), "PROP_SITE")), std::string(400, 'g'));
  EXPECT_EQ(rooms, (std::vector<DWORD>{256, 316, 416}));
}

TEST_F(PropertyTest, AFailedReadIsNullAndKeepsNoBlock) {
  Installer().FailReading("PROP_SITE", ERROR_INVALID_HANDLE);
  EXPECT_EQ(ReadPropertyW(Session(), L"PROP_SITE"), nullptr);
  EXPECT_EQ(ReadPropertyA(Session(), "PROP_SITE"), nullptr);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(PropertyTest, AReadThatFailsTheSecondTimeIsNull) {
  int calls = 0;
  TheWorld().On<::MsiGetPropertyW>([&](MSIHANDLE, LPCWSTR, LPWSTR, LPDWORD count) -> UINT {
    *count = 1000;
    return calls++ == 0 ? ERROR_MORE_DATA : ERROR_FUNCTION_FAILED;
  });
  EXPECT_EQ(ReadPropertyW(Session(), L"PROP_SITE"), nullptr);
  EXPECT_EQ(calls, 2);
}

TEST_F(PropertyTest, OutOfMemoryIsNull) {
  FailEachCall(
      [](rig::Scene& scene) -> UINT {
        HeapFreeSafe(ReadPropertyW(scene.rig.session, L"PROP_SITE"));
        HeapFreeSafe(ReadPropertyA(scene.rig.session, "PROP_SITE"));
        return 0;
      },
      [](rig::World& world) { world.installer.Set("PROP_SITE", std::string(400, 'v')); });
}

// ---- folder properties

class DirectoryPropertyTest : public SessionTest {
 protected:
  int Set(const char* text) {
    PathObject* path = PathMake(nullptr, text, -1);
    int result = SetDirectoryProperty(Session(), L"DIR_UPG", path);
    Release(path);
    return result;
  }
};

TEST_F(DirectoryPropertyTest, TheTextEndsInOneBackslash) {
  EXPECT_EQ(Set("C:\\Data"), 1);
  EXPECT_EQ(Set("C:\\"), 1);
  EXPECT_EQ(Set("C:"), 1);
  EXPECT_EQ(Set("\\\\server\\share"), 1);
  EXPECT_EQ(Set("\\"), 1);
  EXPECT_EQ(Set("C:\\D\xC3\xA4ta\\\xF0\x9F\x92\xBE"), 1);
  EXPECT_PUBLISHED({"DIR_UPG = C:\\Data\\", "DIR_UPG = C:\\", "DIR_UPG = C:\\",
                    "DIR_UPG = \\\\server\\share\\", "DIR_UPG = \\",
                    "DIR_UPG = C:\\D\xC3\xA4ta\\\xF0\x9F\x92\xBE\\"});
}

TEST_F(DirectoryPropertyTest, ATextThatEndsInABackslashStaysAsItIs) {
  PathObject* path = PathMake(nullptr, nullptr, 8);
  memcpy(path->text, "C:\\Data\\", 8);
  EXPECT_EQ(SetDirectoryProperty(Session(), L"DIR_UPG", path), 1);
  Release(path);
  EXPECT_PUBLISHED({"DIR_UPG = C:\\Data\\"});
}

TEST_F(DirectoryPropertyTest, ATextOfOneCharacterGetsABackslashToo) {
  PathObject* path = PathMake(nullptr, nullptr, 1);
  path->text[0] = 'x';
  EXPECT_EQ(SetDirectoryProperty(Session(), L"DIR_UPG", path), 1);
  Release(path);
  EXPECT_PUBLISHED({"DIR_UPG = x\\"});
}

TEST_F(DirectoryPropertyTest, NoPathAndAnEmptyPathSetNothing) {
  EXPECT_EQ(SetDirectoryProperty(Session(), L"DIR_UPG", nullptr), 0);
  PathObject* path = PathMake(nullptr, nullptr, 0);
  EXPECT_EQ(SetDirectoryProperty(Session(), L"DIR_UPG", path), 0);
  Release(path);
  // Text that begins with a terminator becomes empty when converted.
  path = PathMake(nullptr, nullptr, 3);
  EXPECT_EQ(SetDirectoryProperty(Session(), L"DIR_UPG", path), 0);
  Release(path);
  EXPECT_TRACE({});
}

TEST_F(DirectoryPropertyTest, AFailureToSetThePropertyIsIgnored) {
  Installer().FailSetting("DIR_UPG");
  EXPECT_EQ(Set("C:\\Data"), 1);
}

TEST_F(DirectoryPropertyTest, SurvivesTheFailureOfEachCall) {
  size_t failures = FailEachCall([](rig::Scene& scene) -> UINT {
    PathObject* path = PathMake(nullptr, "C:\\Data", -1);
    int result = SetDirectoryProperty(scene.rig.session, L"DIR_UPG", path);
    Release(path);
    // The result is 1 exactly when the call tried to set the property.
    const std::vector<std::string>& calls = scene.rig.trace.Lines();
    EXPECT_EQ(result, std::count_if(calls.begin(), calls.end(), [](const std::string& call) {
                return call.rfind("MsiSetPropertyW(", 0) == 0;
              }));
    return 0;
  });
  EXPECT_GE(failures, 5u);
}

TEST_F(SessionTest, TheLastErrorSaysWhyAPropertyWasNotRead) {
  Installer().Set("PROP_SITE", std::string(300, 'x'));
  Installer().FailReading("PROP_ASSETID", ERROR_INVALID_HANDLE);
  EXPECT_EQ(ReadPropertyW(Session(), L"PROP_ASSETID"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(ReadPropertyA(Session(), "PROP_ASSETID"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  TheWorld().On<::HeapReAlloc>([](HANDLE, DWORD, void*, SIZE_T) -> void* { return nullptr; });
  EXPECT_EQ(ReadPropertyW(Session(), L"PROP_SITE"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OUTOFMEMORY});
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD, SIZE_T) -> void* { return nullptr; });
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(ReadPropertyA(Session(), "PROP_SITE"), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_OUTOFMEMORY});
}

// ---- the client's programs

class ClientProgramTest : public SessionTest {
 protected:
  // No file of the client is on the disk, unless a test says so.
  void Arrange(rig::World& world) override {
    world.On<::FindFirstFileW>([](LPCWSTR, WIN32_FIND_DATAW*) -> HANDLE { return INVALID_HANDLE_VALUE; });
    world.On<::GetSystemWindowsDirectoryW>([](LPWSTR buffer, UINT) -> UINT {
      lstrcpyW(buffer, L"C:\\SystemWindows");
      return 16;
    });
    world.On<::GetWindowsDirectoryW>([](LPWSTR buffer, UINT) -> UINT {
      lstrcpyW(buffer, L"C:\\UserWindows");
      return 14;
    });
  }

  std::wstring Resolve(const char* name) { return Take(ResolveClientProgramPath(Session(), nullptr, name)); }

  size_t CallsOf(const std::string& name) {
    size_t count = 0;
    for (const std::string& line : TheRig().trace.Lines()) count += line.rfind(name + "(", 0) == 0;
    return count;
  }
};

TEST_F(ClientProgramTest, LiesInTheClientFolder) {
  Installer().Set("DIR_CLIENT", "C:\\Ostrel\\");
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\Ostrel\\osua.exe");
  EXPECT_EQ(Resolve("ostrel32.exe"), L"C:\\Ostrel\\ostrel32.exe");
  EXPECT_EQ(CallsOf("GetSystemWindowsDirectoryW"), 0u);
}

TEST_F(ClientProgramTest, LiesInTheWindowsFolderWithoutAClientFolder) {
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\SystemWindows\\osua.exe");
  EXPECT_EQ(CallsOf("GetWindowsDirectoryW"), 0u);
}

TEST_F(ClientProgramTest, LiesInTheWindowsFolderWhenTheClientFolderCannotBeRead) {
  Installer().FailReading("DIR_CLIENT");
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\SystemWindows\\osua.exe");
}

TEST_F(ClientProgramTest, FallsBackToTheOlderFunction) {
  TheModules().MissingFunction("KERNEL32", "GetSystemWindowsDirectoryW");
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\UserWindows\\osua.exe");
}

TEST_F(ClientProgramTest, LooksTheNewerFunctionUpOnce) {
  Resolve("osua.exe");
  Resolve("osau.exe");
  EXPECT_EQ(CallsOf("GetProcAddress"), 1u);
  EXPECT_EQ(CallsOf("GetModuleHandleA"), 1u);
  EXPECT_EQ(CallsOf("GetSystemWindowsDirectoryW"), 2u);
  // The standard folder does not look for it again either.
  PathObject* folder = GetStandardFolder(FourCharCode("swin"));
  EXPECT_NE(folder, nullptr);
  Release(folder);
  EXPECT_EQ(CallsOf("GetProcAddress"), 1u);
  EXPECT_EQ(CallsOf("GetSystemWindowsDirectoryW"), 3u);
}

TEST_F(ClientProgramTest, MakesTheseCallsInThisOrder) {
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\SystemWindows\\osua.exe");
  EXPECT_TRACE({
      R"(MsiGetPropertyW(session, "DIR_CLIENT", *, *) = 0)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(GetModuleHandleA("KERNEL32") = KERNEL32)",
      R"(GetProcAddress(KERNEL32, "GetSystemWindowsDirectoryW") = *)",
      R"(SetErrorMode(0x4000) = 32769)",
      R"(GetSystemWindowsDirectoryW(*, 128) = 16)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(FindFirstFileW("C:\\SystemWindows", *) = INVALID_HANDLE_VALUE)",
      R"(SetErrorMode(0x4000) = 32769)",
      R"(SetErrorMode(0x8001) = 16384)",
      R"(FindFirstFileW("C:\\SystemWindows\\osua.exe", *) = INVALID_HANDLE_VALUE)",
      R"(SetErrorMode(0x4000) = 32769)",
  });
}

TEST_F(ClientProgramTest, IsNullWhenTheWindowsFolderIsUnknown) {
  TheWorld().On<::GetSystemWindowsDirectoryW>([](LPWSTR, UINT) -> UINT { return 0; });
  EXPECT_EQ(ResolveClientProgramPath(Session(), nullptr, "osua.exe"), nullptr);
}

TEST_F(ClientProgramTest, IsNullForANameThatGoesUp) {
  EXPECT_EQ(ResolveClientProgramPath(Session(), nullptr, "..\\osua.exe"), nullptr);
}

TEST_F(ClientProgramTest, IgnoresItsSecondArgument) {
  Installer().Set("DIR_CLIENT", "C:\\Ostrel");
  EXPECT_EQ(Take(ResolveClientProgramPath(Session(), "anything", "osua.exe")), L"C:\\Ostrel\\osua.exe");
}

TEST_F(ClientProgramTest, TakesTheNameAsItIsOnTheDisk) {
  Installer().Set("DIR_CLIENT", "C:\\Ostrel");
  TheWorld().On<::FindFirstFileW>([](LPCWSTR name, WIN32_FIND_DATAW* data) -> HANDLE {
    if (lstrcmpW(name, L"C:\\Ostrel\\osua.exe") != 0) return INVALID_HANDLE_VALUE;
    *data = {};
    lstrcpyW(data->cFileName, L"OsUa.Exe");
    return reinterpret_cast<HANDLE>(0x1234);
  });
  TheWorld().On<::FindClose>([](HANDLE) { return TRUE; });
  EXPECT_EQ(Resolve("osua.exe"), L"C:\\Ostrel\\OsUa.Exe");
}

TEST_F(ClientProgramTest, IsNullWhenTheWindowsFolderIsTooLong) {
  TheWorld().On<::GetSystemWindowsDirectoryW>([](LPWSTR, UINT) -> UINT { return 129; });
  EXPECT_EQ(ResolveClientProgramPath(Session(), nullptr, "osua.exe"), nullptr);
}

TEST_F(ClientProgramTest, IsWholeOrNullWhicheverCallFails) {
  for (const char* folder : {"", "C:\\Ostr\xC3\xAAl"}) {
    SCOPED_TRACE(folder);
    FailEachCall(
        [&](rig::Scene& scene) -> UINT {
          wchar_t* path = ResolveClientProgramPath(scene.rig.session, nullptr, "osua.exe");
          if (path) {
            // The folder from the property, or one of the two that replace it.
            std::wstring text(path);
            EXPECT_TRUE(text == L"C:\\Ostr\u00EAl\\osua.exe" || text == L"C:\\SystemWindows\\osua.exe" ||
                        text == L"C:\\UserWindows\\osua.exe");
          }
          HeapFreeSafe(path);
          return 0;
        },
        [&](rig::World& world) { world.installer.Set("DIR_CLIENT", folder); });
  }
}

// ---- the log

class LogTest : public SessionTest {};

TEST_F(LogTest, ALineIsARecordOfTwoFields) {
  EXPECT_EQ(LogSetupMessage(Session(), "Task install failed:  %ld", -32), 0);
  EXPECT_TRACE({
      R"(MsiCreateRecord(2) = record#1)",
      R"(MsiRecordSetStringA(record#1, 0, "Hx Setup Log: [1]") = 0)",
      R"(MsiRecordSetStringA(record#1, 1, "Task install failed:  -32") = 0)",
      R"(MsiProcessMessage(session, 0x4000000, record#1) = 1)",
      R"(MsiCloseHandle(record#1) = 0)",
  });
  EXPECT_LOG({"Hx Setup Log: Task install failed:  -32"});
}

TEST_F(LogTest, ALineIsCutTo255Bytes) {
  const std::string text(300, 'x');
  for (size_t length : {254u, 255u, 256u, 300u}) {
    LogSetupMessage(Session(), "%s", text.substr(0, length).c_str());
  }
  std::vector<std::string> log = Installer().Log();
  ASSERT_EQ(log.size(), 4u);
  const std::string mark = "Hx Setup Log: ";
  EXPECT_EQ(log[0], mark + std::string(254, 'x'));
  EXPECT_EQ(log[1], mark + std::string(255, 'x'));
  EXPECT_EQ(log[2], mark + std::string(255, 'x'));
  EXPECT_EQ(log[3], mark + std::string(255, 'x'));
}

TEST_F(LogTest, ALineWithoutARecordIsDropped) {
  Installer().refusesRecords = true;
  EXPECT_EQ(LogSetupMessage(Session(), "text"), 0);
  EXPECT_TRACE({"MsiCreateRecord(2) = 0"});
}

TEST_F(LogTest, ARejectedLineStillClosesItsRecord) {
  Installer().answer = -1;
  EXPECT_EQ(LogSetupMessage(Session(), "text"), 0);
}

TEST_F(LogTest, WideTextIsWrittenUnchangedAfterItsOwnPrefix) {
  LogSetupTextW(Session(), L"C:\\100%ls\\\u4E2D\u6587");
  EXPECT_TRACE({
      R"(MsiCreateRecord(2) = record#1)",
      R"(MsiRecordSetStringW(record#1, 0, "JN Setup Log: [1]") = 0)",
      "MsiRecordSetStringW(record#1, 1, \"C:\\\\100%ls\\\\\xE4\xB8\xAD\xE6\x96\x87\") = 0",
      R"(MsiProcessMessage(session, 0x4000000, record#1) = 1)",
      R"(MsiCloseHandle(record#1) = 0)",
  });
  EXPECT_LOG({"JN Setup Log: C:\\100%ls\\\xE4\xB8\xAD\xE6\x96\x87"});
}

TEST_F(LogTest, WideTextOfAnyLengthIsWrittenWhole) {
  LogSetupTextW(Session(), std::wstring(1000, L'w').c_str());
  EXPECT_LOG({"JN Setup Log: " + std::string(1000, 'w')});
}

TEST_F(LogTest, WideTextWithoutARecordIsDropped) {
  Installer().refusesRecords = true;
  LogSetupTextW(Session(), L"text");
  EXPECT_TRACE({"MsiCreateRecord(2) = 0"});
}

TEST_F(LogTest, SurvivesTheFailureOfEachCall) {
  FailEachCall([](rig::Scene& scene) -> UINT {
    EXPECT_EQ(LogSetupMessage(scene.rig.session, "%ls", L"wide"), 0);
    LogSetupTextW(scene.rig.session, L"wide");
    return 0;
  });
}

// ---- rollback

class RollbackTest : public SessionTest {};

TEST_F(RollbackTest, IsWhatTheInstallerSays) {
  EXPECT_FALSE(IsRollback(Session()));
  Installer().rollback = true;
  EXPECT_TRUE(IsRollback(Session()));
  EXPECT_TRACE({"MsiGetMode(session, 17) = 0", "MsiGetMode(session, 17) = 1"});
}

}  // namespace session_test
