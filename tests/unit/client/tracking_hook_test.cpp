// The list of libraries that Windows loads into every process with windows. These tests add and remove a
// name, in the rig's registry and in the real one.

#include "client/tracking_hook.h"

#include <optional>

#include "rig/action_test.h"
#include "rig/internals.h"

namespace tracking_hook_test {

HX_INTERNAL(AddAppInitDll);
HX_INTERNAL(RemoveAppInitDll);

using std::string_literals::operator""s;

constexpr char kKey[] = "HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\Windows";
constexpr char kList[] = "AppInit_DLLs";
constexpr char kSwitch[] = "LoadAppInit_DLLs";
constexpr char kName[] = "OSTRACK.DLL";

// A list before and after, to the byte; nothing for a missing list.
struct ListCase {
  std::optional<std::string> before;
  std::optional<std::string> after;
  DWORD type = REG_SZ;
};

// True if the trace shows that the list was written or deleted.
bool WasTouched(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    if (line.find("\"AppInit_DLLs\", 0, ") != std::string::npos || line.rfind("RegDeleteValueA", 0) == 0) {
      return true;
    }
  }
  return false;
}

const std::string kLong(20000, 'x');
const std::string kZeros(12, '\0');

const ListCase kAdded[] = {
    {std::nullopt, "OSTRACK.DLL\0"s},
    {"\0"s, "OSTRACK.DLL\0"s},
    {"a.dll\0"s, "a.dll OSTRACK.DLL\0"s},
    {"a.dll b.dll\0"s, "a.dll b.dll OSTRACK.DLL\0"s},
    {"a.dll,b.dll\0"s, "a.dll,b.dll OSTRACK.DLL\0"s},
    {"a.dll \0"s, "a.dll  OSTRACK.DLL\0"s},
    {"x\0"s, "x OSTRACK.DLL\0"s},
    {kLong + "\0"s, kLong + " OSTRACK.DLL\0"s},
    // Case matters, and so does every letter.
    {"ostrack.dll\0"s, "ostrack.dll OSTRACK.DLL\0"s},
    {"OSTRACK.DL\0"s, "OSTRACK.DL OSTRACK.DLL\0"s},
    {"STRACK.DLL\0"s, "STRACK.DLL OSTRACK.DLL\0"s},
    {"OSTRK64.DLL\0"s, "OSTRK64.DLL OSTRACK.DLL\0"s},
    // Without a terminator none is written; several terminators are all kept.
    {"", "OSTRACK.DLL"},
    {"a.dll", "a.dll OSTRACK.DLL"},
    {kLong, kLong + " OSTRACK.DLL"},
    {"a.dll\0\0"s, "a.dll OSTRACK.DLL\0\0"s},
    // A single byte counts as the terminator of an empty list, more bytes as a list.
    {"x", "xOSTRACK.DLL"},
    {"\0\0"s, " OSTRACK.DLL\0\0"s},
    // Text after a terminator is not seen, and is overwritten.
    {"a\0b\0"s, "a OSTRACK.DLL\0\0\0"s},
    {"a\0OSTRACK.DLL\0"s, "a OSTRACK.DLL\0"s + kZeros},
    // The name is already there, even if only as part of an entry.
    {"OSTRACK.DLL\0"s, "OSTRACK.DLL\0"s},
    {"OSTRACK.DLL", "OSTRACK.DLL"},
    {"OSTRACK.DLL b.dll\0"s, "OSTRACK.DLL b.dll\0"s},
    {"a.dll OSTRACK.DLL\0"s, "a.dll OSTRACK.DLL\0"s},
    {"a.dll OSTRACK.DLL OSTRACK.DLL\0"s, "a.dll OSTRACK.DLL OSTRACK.DLL\0"s},
    {"C:\\x\\OSTRACK.DLL\0"s, "C:\\x\\OSTRACK.DLL\0"s},
    {"XOSTRACK.DLLX b.dll\0"s, "XOSTRACK.DLLX b.dll\0"s},
    {"a.dll,OSTRACK.DLL\0"s, "a.dll,OSTRACK.DLL\0"s},
    {kLong + "OSTRACK.DLL\0"s, kLong + "OSTRACK.DLL\0"s},
    // A value of another type is left alone.
    {"a.dll\0"s, "a.dll\0"s, REG_EXPAND_SZ},
    {"a.dll\0\0"s, "a.dll\0\0"s, REG_MULTI_SZ},
    {"a.dll\0"s, "a.dll\0"s, REG_BINARY},
    {"\1\2\3\4"s, "\1\2\3\4"s, REG_DWORD},
};

const ListCase kRemoved[] = {
    {std::nullopt, std::nullopt},
    {"OSTRACK.DLL\0"s, std::nullopt},
    {"OSTRACK.DLL b.dll\0"s, "b.dll\0"s},
    {"a.dll OSTRACK.DLL\0"s, "a.dll\0"s},
    {"a.dll OSTRACK.DLL b.dll\0"s, "a.dll b.dll\0"s},
    {kLong + " OSTRACK.DLL " + kLong + "\0"s, kLong + " " + kLong + "\0"s},
    // One blank is removed: the one after the name at the start of the list, else the one before the name.
    {"OSTRACK.DLL \0"s, std::nullopt},
    {" OSTRACK.DLL\0"s, std::nullopt},
    {" OSTRACK.DLL \0"s, " \0"s},
    {"OSTRACK.DLL  b.dll\0"s, " b.dll\0"s},
    {"a.dll  OSTRACK.DLL\0"s, "a.dll \0"s},
    {"a.dll  OSTRACK.DLL  b.dll\0"s, "a.dll   b.dll\0"s},
    {"\tOSTRACK.DLL\0"s, "\t\0"s},
    // Only the first occurrence is removed.
    {"OSTRACK.DLL OSTRACK.DLL\0"s, "OSTRACK.DLL\0"s},
    {"a OSTRACK.DLL OSTRACK.DLL b\0"s, "a OSTRACK.DLL b\0"s},
    {"OSTRACK.DLLOSTRACK.DLL\0"s, "OSTRACK.DLL\0"s},
    // The name is also removed from a longer entry.
    {"C:\\x\\OSTRACK.DLL b.dll\0"s, "C:\\x\\ b.dll\0"s},
    {"XOSTRACK.DLLY\0"s, "XY\0"s},
    {"OSTRACK.DLLY\0"s, "Y\0"s},
    {"a OSTRACK.DLLY\0"s, "aY\0"s},
    {"a,OSTRACK.DLL,b\0"s, "a,,b\0"s},
    // The new list has one terminator, however many the old one had.
    {"OSTRACK.DLL", std::nullopt},
    {"a.dll OSTRACK.DLL", "a.dll\0"s},
    {"OSTRACK.DLL b.dll", "b.dll\0"s},
    {"a.dll OSTRACK.DLL\0\0"s, "a.dll\0"s},
    {"a OSTRACK.DLL\0b\0"s, "a\0"s},
    {"OSTRACK.DLL\0b\0"s, std::nullopt},
    // The name is not there.
    {"", ""},
    {"\0"s, "\0"s},
    {"x", "x"},
    {"\0\0"s, "\0\0"s},
    {"a.dll", "a.dll"},
    {"a.dll\0"s, "a.dll\0"s},
    {"a.dll\0\0"s, "a.dll\0\0"s},
    {"a\0OSTRACK.DLL\0"s, "a\0OSTRACK.DLL\0"s},
    {"ostrack.dll\0"s, "ostrack.dll\0"s},
    {"OSTRACK.DL\0"s, "OSTRACK.DL\0"s},
    {"OSTRK64.DLL\0"s, "OSTRK64.DLL\0"s},
    {kLong, kLong},
    // A value of another type is left alone.
    {"OSTRACK.DLL\0"s, "OSTRACK.DLL\0"s, REG_EXPAND_SZ},
    {"OSTRACK.DLL\0\0"s, "OSTRACK.DLL\0\0"s, REG_MULTI_SZ},
    {"OSTRACK.DLL\0"s, "OSTRACK.DLL\0"s, REG_BINARY},
};

class TrackingHookTest : public rig::RiggedInternalsTest {
 protected:
  // Tries the operation on each list, in the rig's registry.
  template <class Operation, size_t kCount>
  void TryAll(Operation operation, const ListCase (&cases)[kCount]) {
    for (const ListCase& row : cases) {
      SCOPED_TRACE(row.before ? rig::Quote(row.before->substr(0, 60)) : "none");
      TheRegistry().Unset(kKey, kList);
      if (row.before) TheRegistry().SetBytes(kKey, kList, row.type, *row.before);
      TheRig().trace.Clear();
      EXPECT_EQ(operation(kName, 0), 0);
      EXPECT_EQ(TheRegistry().Bytes(kKey, kList), row.after);
      EXPECT_EQ(TheRegistry().Type(kKey, kList), row.after ? row.type : DWORD{REG_NONE});
      EXPECT_EQ(WasTouched(TheRig().trace.Lines()), row.before != row.after);
    }
  }
};

TEST_F(TrackingHookTest, AddsTheNameToEachKindOfList) {
  TryAll(AddAppInitDll, kAdded);
}

TEST_F(TrackingHookTest, RemovesTheNameFromEachKindOfList) {
  TryAll(RemoveAppInitDll, kRemoved);
}

// The same with the real registry, in a key of the test's own.
class RealListTest : public rig::InternalsTest {
 protected:
  static constexpr char kOwnKey[] = "Software\\HxTrackingHookTest";

  void SetUp() override {
    rig::InternalsTest::SetUp();
    RegDeleteKeyA(HKEY_CURRENT_USER, kOwnKey);
    ASSERT_EQ(RegCreateKeyA(HKEY_CURRENT_USER, kOwnKey, &key_), ERROR_SUCCESS);
    TheRig().On<::RegOpenKeyExA>([](HKEY, const char*, DWORD options, REGSAM access, HKEY* key) {
      return rig::Function<&::RegOpenKeyExA>::Real()(HKEY_CURRENT_USER, kOwnKey, options, access, key);
    });
  }
  void TearDown() override {
    RegCloseKey(key_);
    RegDeleteKeyA(HKEY_CURRENT_USER, kOwnKey);
    rig::InternalsTest::TearDown();
  }

  // Sets the list to these bytes, as wide text if it is text. Windows adds a terminator if one follows the
  // data in memory, so dots follow it here.
  void Write(DWORD type, const std::string& bytes) {
    if (type == REG_BINARY || type == REG_DWORD) {
      RegSetValueExA(key_, kList, 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                     static_cast<DWORD>(bytes.size()));
      return;
    }
    std::wstring wide(bytes.begin(), bytes.end());
    wide += L"..";
    RegSetValueExW(key_, L"AppInit_DLLs", 0, type, reinterpret_cast<const BYTE*>(wide.data()),
                   static_cast<DWORD>(bytes.size() * sizeof(wchar_t)));
  }

  std::optional<std::string> Read() {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExA(key_, kList, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return std::nullopt;
    std::string bytes(size + 2, '\0');
    RegQueryValueExA(key_, kList, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
    bytes.resize(size);
    return bytes;
  }

  template <class Operation, size_t kCount>
  void TryAll(Operation operation, const ListCase (&cases)[kCount]) {
    for (const ListCase& row : cases) {
      SCOPED_TRACE(row.before ? rig::Quote(row.before->substr(0, 60)) : "none");
      RegDeleteValueA(key_, kList);
      if (row.before) {
        Write(row.type, *row.before);
        ASSERT_EQ(Read(), row.before);
      }
      EXPECT_EQ(operation(kName, 0), 0);
      std::optional<std::string> after = row.after;
      // The system adds a missing terminator.
      if (after && row.before != row.after && after->back() != '\0') after->push_back('\0');
      EXPECT_EQ(Read(), after);
    }
  }

  HKEY key_ = nullptr;
};

TEST_F(RealListTest, AddsTheNameToEachKindOfList) {
  TryAll(AddAppInitDll, kAdded);
}

TEST_F(RealListTest, RemovesTheNameFromEachKindOfList) {
  TryAll(RemoveAppInitDll, kRemoved);
}

struct SwitchCase {
  std::optional<std::string> before;
  DWORD type;
  std::optional<std::string> after;
};

class SwitchTest : public TrackingHookTest, public testing::WithParamInterface<SwitchCase> {
 protected:
  void SetUp() override {
    TrackingHookTest::SetUp();
    SetSwitch();
  }
  void SetSwitch() {
    TheRegistry().Unset(kKey, kSwitch);
    if (GetParam().before) TheRegistry().SetBytes(kKey, kSwitch, GetParam().type, *GetParam().before);
  }
  static bool WasSet() {
    for (const std::string& line : rig::Rig::Current()->trace.Lines()) {
      if (line.find("\"LoadAppInit_DLLs\", 0, ") != std::string::npos) return true;
    }
    return false;
  }
};

TEST_P(SwitchTest, IsSwitchedOnByAdding) {
  AddAppInitDll(kName, 0);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), GetParam().after);
  EXPECT_EQ(TheRegistry().Type(kKey, kSwitch), GetParam().type);
  EXPECT_EQ(WasSet(), GetParam().before != GetParam().after);
  // The list is always written.
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "OSTRACK.DLL\0"s);
}

TEST_P(SwitchTest, IsSwitchedOnEvenIfTheListStaysUnchanged) {
  for (DWORD type : {DWORD{REG_SZ}, DWORD{REG_BINARY}}) {
    SetSwitch();
    TheRegistry().SetBytes(kKey, kList, type, "OSTRACK.DLL\0"s);
    AddAppInitDll(kName, 0);
    EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), GetParam().after);
  }
}

TEST_P(SwitchTest, IsNotTouchedByRemoving) {
  TheRegistry().SetText(kKey, kList, kName);
  RemoveAppInitDll(kName, 0);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), GetParam().before);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList).has_value());
}

const SwitchCase kSwitches[] = {
    {std::nullopt, REG_DWORD, "\1\0\0\0"s},
    {"\0\0\0\0"s, REG_DWORD, "\1\0\0\0"s},
    {"\1\0\0\0"s, REG_DWORD, "\1\0\0\0"s},
    {"\2\0\0\0"s, REG_DWORD, "\3\0\0\0"s},
    {"\3\0\0\0"s, REG_DWORD, "\3\0\0\0"s},
    {"\xFE\xFF\xFF\xFF"s, REG_DWORD, "\xFF\xFF\xFF\xFF"s},
    {"\2"s, REG_DWORD, "\3\0\0\0"s},
    {""s, REG_DWORD, "\1\0\0\0"s},
    {"\0\0\0\0\0"s, REG_DWORD, "\0\0\0\0\0"s},
    {"\0\0\0\0"s, REG_BINARY, "\0\0\0\0"s},
    {""s, REG_BINARY, ""s},
    {"0\0"s, REG_SZ, "0\0"s},
    {"not a number at all\0"s, REG_SZ, "not a number at all\0"s},
    {"\0\0\0\0\0\0\0\0"s, REG_QWORD, "\0\0\0\0\0\0\0\0"s},
};
INSTANTIATE_TEST_SUITE_P(Switches, SwitchTest, testing::ValuesIn(kSwitches));

TEST_F(TrackingHookTest, ASwitchThatCannotBeReadIsLeftAlone) {
  TheRegistry().SetNumber(kKey, kSwitch, 2);
  TheWorld().On<::RegQueryValueExA>([](HKEY, const char* name, DWORD*, DWORD*, BYTE*, DWORD*) -> LSTATUS {
    return name == std::string(kSwitch) ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND;
  });
  EXPECT_EQ(AddAppInitDll(kName, 0), 0);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "OSTRACK.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch), "\2\0\0\0"s);
}

TEST_F(TrackingHookTest, AListThatCannotBeReadIsLeftAlone) {
  TheRegistry().SetText(kKey, kList, "a.dll OSTRACK.DLL");
  TheWorld().On<::RegQueryValueExA>(
      [](HKEY, const char*, DWORD*, DWORD* type, BYTE* data, DWORD* size) -> LSTATUS {
        // The list has grown since its size was queried.
        if (data != nullptr) return ERROR_MORE_DATA;
        *type = REG_SZ;
        *size = 4;
        return ERROR_SUCCESS;
      });
  EXPECT_EQ(AddAppInitDll("OTHER.DLL", 0), 0);
  EXPECT_EQ(RemoveAppInitDll(kName, 0), 0);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "a.dll OSTRACK.DLL\0"s);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kSwitch).has_value());
}

TEST_F(TrackingHookTest, EachViewHasItsOwnList) {
  TheRegistry().Create(kKey);
  TheRegistry().Create(kKey, rig::View::k32);
  AddAppInitDll("A.DLL", KEY_WOW64_32KEY);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList).has_value());
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList, rig::View::k32), "A.DLL\0"s);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kSwitch, rig::View::k32), "\1\0\0\0"s);
  AddAppInitDll("B.DLL", KEY_WOW64_64KEY);
  RemoveAppInitDll("A.DLL", KEY_WOW64_32KEY);
  EXPECT_EQ(TheRegistry().Bytes(kKey, kList), "B.DLL\0"s);
  EXPECT_FALSE(TheRegistry().Bytes(kKey, kList, rig::View::k32).has_value());
}

TEST_F(TrackingHookTest, SurvivesEveryFailure) {
  FailEachCall(
      [](rig::Scene&) -> UINT {
        return static_cast<UINT>(AddAppInitDll(kName, 0) + RemoveAppInitDll("b.dll", 0));
      },
      [](rig::World& world) {
        world.registry.SetText(kKey, kList, "a.dll b.dll");
        world.registry.SetNumber(kKey, kSwitch, 2);
      });
}

}  // namespace tracking_hook_test
