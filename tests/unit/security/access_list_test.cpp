// Setting the access lists of files and folders.

#include "security/access_list.h"

#include <memory>

#include "base/heap.h"
#include "rig/internals_test.h"
#include "rig/kept.h"

namespace access_list_test {

HX_INTERNAL(ApplyAccountAccess);
HX_INTERNAL(PathMake);

// Creates a path and releases it at the end.
class Path {
 public:
  explicit Path(const char* text) : path_(PathMake(nullptr, text, -1)) {}
  ~Path() {
    if (path_ != nullptr) {
      path_->ops.Release(path_);
    }
  }
  Path(const Path&) = delete;
  Path& operator=(const Path&) = delete;
  PathObject* get() const { return path_; }

 private:
  PathObject* path_;
};

class AccessListTest : public rig::RiggedInternalsTest {
 protected:
  void Arrange(rig::World& world) override {
    // No file exists, so paths keep the given spelling.
    world.On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
      SetLastError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    });
    world.accounts.users["svc"];
  }
  rig::AccessLists& Lists() { return TheWorld().accessLists; }
  // Applies a mode to S:\Data and returns the resulting entry.
  std::string EntryOf(DWORD mode) {
    Lists().applied.clear();
    Path path("S:\\Data");
    EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", mode), 0) << std::hex << mode;
    EXPECT_EQ(Lists().applied.size(), 1u);
    return Lists().applied.empty() ? "" : Lists().applied.front();
  }
  static std::string Entry(const std::string& rights, const std::string& inherits) {
    return "S:\\Data: rights=" + rights + " mode=2 inherits=" + inherits +
           " multiple=null/0 form=0 type=0 sid=PC7\\svc";
  }
};

TEST_F(AccessListTest, EachModeHasItsRightsAndItsInheritance) {
  struct Case {
    DWORD mode;
    const char* rights;
  };
  for (const Case& one : {Case{0x000, "0x0"},
                          {0x100, "0x80000000"},
                          {0x080, "0x40000000"},
                          {0x040, "0x20000000"},
                          {0x180, "0xc0000000"},
                          {0x140, "0xa0000000"},
                          {0x0C0, "0x60000000"},
                          {0x1C0, "0x10000000"}}) {
    EXPECT_EQ(EntryOf(one.mode), Entry(one.rights, "4"));
    EXPECT_EQ(EntryOf(one.mode | 0x80000000), Entry(one.rights, "3"));
    // All other bits have no effect: the digits of group and others, and the bits that belong to no digit.
    EXPECT_EQ(EntryOf(one.mode | 0x7FFFFE3F), Entry(one.rights, "4"));
    EXPECT_EQ(EntryOf(one.mode | 0xFFFFFE3F), Entry(one.rights, "3"));
  }
}

TEST_F(AccessListTest, ANullArgumentIsMinus50) {
  Path path("S:\\Data");
  EXPECT_EQ(ApplyAccountAccess(nullptr, "svc", kAccessAll), -50);
  EXPECT_EQ(ApplyAccountAccess(path.get(), nullptr, kAccessAll), -50);
  EXPECT_EQ(ApplyAccountAccess(nullptr, nullptr, kAccessAll), -50);
  // The arguments are checked first.
  TheWorld().clock.version = 0x05650004;
  EXPECT_EQ(ApplyAccountAccess(nullptr, "svc", kAccessAll), -50);
  EXPECT_EQ(ApplyAccountAccess(path.get(), nullptr, kAccessAll), -50);
  EXPECT_TRACE({});
}

TEST_F(AccessListTest, OnlyVersion5OfTheNtFamilyAndLaterHasLists) {
  struct Case {
    DWORD version;
    bool hasLists;
  };
  for (const Case& one : {Case{0x00000003, false},
                          {0x05650004, false},
                          {0x0565FF04, false},
                          {0x08930005, true},
                          {0x00000105, true},
                          {0x4A64000A, true},
                          {0x000000FF, true},
                          {0x80000005, false},
                          {0xC0000A04, false},
                          {0xFFFFFFFF, false}}) {
    TheWorld().clock.version = one.version;
    Lists().applied.clear();
    Path path("S:\\Data");
    EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", kAccessAll), 0);
    EXPECT_EQ(Lists().applied.size(), one.hasLists ? 1u : 0u) << std::hex << one.version;
  }
}

// A path of length 0 has no text. The path is checked before the account, and not at all on a system without
// access lists.
TEST_F(AccessListTest, APathWithoutTextIsMinus108) {
  PathObject* path = PathMake(nullptr, "", 0);
  ASSERT_NE(path, nullptr);
  path->length = 0;
  EXPECT_EQ(ApplyAccountAccess(path, "svc", kAccessAll), -108);
  EXPECT_EQ(ApplyAccountAccess(path, "ghost", kAccessAll), -108);
  TheWorld().clock.version = 0x05650004;
  EXPECT_EQ(ApplyAccountAccess(path, "svc", kAccessAll), 0);
  path->ops.Release(path);
  EXPECT_TRACE({});
}

TEST_F(AccessListTest, AnAccountThatIsNotFoundIsMinus36) {
  Path path("S:\\Data");
  for (const char* account : {"ghost", "", "\\", "PC8\\svc"}) {
    EXPECT_EQ(ApplyAccountAccess(path.get(), account, kAccessAll), -36) << account;
  }
  EXPECT_TRUE(Lists().applied.empty());
  TheRig().ledger.Deliberate(rig::kModule, "NETAPI32");
}

TEST_F(AccessListTest, MissingFunctionsAreMinus1) {
  Path path("S:\\Data");
  TheModules().MissingFunction("ADVAPI32", "SetNamedSecurityInfoW");
  EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", kAccessAll), -1);
  TheModules().MissingFunction("ADVAPI32", "SetEntriesInAclW");
  // SetEntriesInAclW was found before and is still used. SetNamedSecurityInfoW is still missing.
  EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", kAccessAll), -1);
  EXPECT_TRUE(Lists().applied.empty());
}

TEST_F(AccessListTest, ErrorsOfTheSystemAreTheResult) {
  Path path("S:\\Data");
  for (DWORD error : {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_INVALID_ACL}) {
    Lists().applyError = error;
    EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", kAccessAll), static_cast<int>(error));
  }
  Lists().entriesError = ERROR_NONE_MAPPED;
  EXPECT_EQ(ApplyAccountAccess(path.get(), "svc", kAccessAll), ERROR_NONE_MAPPED);
  EXPECT_TRUE(Lists().applied.empty());
}

TEST_F(AccessListTest, ThePathIsPassedAsText) {
  Path folder("S:\\Dätå");
  PathObject* file = PathMake(folder.get(), "日本.txt", -1);
  EXPECT_EQ(ApplyAccountAccess(file, "LocalSystem", kAccessRead), 0);
  file->ops.Release(file);
  EXPECT_EQ(Lists().applied,
            std::vector<std::string>{"S:\\Dätå\\日本.txt: rights=0x80000000 mode=2 inherits=4 "
                                     "multiple=null/0 form=0 type=0 sid=<LocalSystem>"});
}

TEST_F(AccessListTest, SurvivesEveryFailure) {
  FailEachCall(
      [](rig::Scene& scene) -> UINT {
        Path path("S:\\Data");
        auto result = static_cast<UINT>(ApplyAccountAccess(path.get(), "LocalService", kAccessAll));
        rig::KeepModules(scene.rig, {"NETAPI32", "ADVAPI32"});
        rig::KeepWithout(scene.rig, "NETAPI32", "NetApiBufferFree", rig::kNetBuffer);
        return result;
      },
      {},
      {.results = {0, static_cast<UINT>(-1), static_cast<UINT>(-36), static_cast<UINT>(-50),
                   static_cast<UINT>(-108), 5, 1336}});
}

}  // namespace access_list_test
