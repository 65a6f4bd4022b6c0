// The family and the version of the operating system.

#include "base/os_version.h"

#include "rig/internals_test.h"

namespace os_version_test {

HX_INTERNAL(IsNtPlatform);
HX_INTERNAL(IsVersionAtLeast);

struct VersionCase {
  DWORD packed;
  BOOL told;
  DWORD major, minor, build;
  bool isNt;
};

class OsVersionAnswers : public rig::InternalsTest {
 protected:
  void Answer(const VersionCase& row) {
    TheRig().On<::GetVersion>([this, row] {
      ++versionQuestions;
      return row.packed;
    });
    TheRig().On<::GetVersionExA>([this, row](OSVERSIONINFOA* info) -> BOOL {
      ++extendedQuestions;
      EXPECT_EQ(info->dwOSVersionInfoSize, 156u);
      info->dwMajorVersion = row.major;
      info->dwMinorVersion = row.minor;
      info->dwBuildNumber = row.build;
      return row.told;
    });
  }
  int versionQuestions = 0;
  int extendedQuestions = 0;
};

class OsVersionTest : public OsVersionAnswers, public testing::WithParamInterface<VersionCase> {};

TEST_P(OsVersionTest, IsOfTheNtFamily) {
  Answer(GetParam());
  EXPECT_EQ(IsNtPlatform(), GetParam().isNt);
}

const VersionCase kVersions[] = {
    {0x00000004, TRUE, 10, 0, 22631, true},   {0x00000004, TRUE, 3, 50, 807, true},
    {0x00000004, TRUE, 3, 5, 0, true},        {0x00000004, TRUE, 3, 4, 0xFFFF, false},
    {0x00000004, TRUE, 3, 5, 0x10000, true},  {0x00000004, TRUE, 3, 4, 0x1FFFF, false},
    {0x00000004, TRUE, 2, 255, 65535, false}, {0x00000004, FALSE, 0, 0, 0, true},
    {0x80000004, TRUE, 10, 0, 0, false},      {0xC0000A04, TRUE, 10, 0, 0, false},
    {0x80000003, TRUE, 10, 0, 0, false},
};
INSTANTIATE_TEST_SUITE_P(Versions, OsVersionTest, testing::ValuesIn(kVersions));

TEST_F(OsVersionTest, TheVersionIsAskedForOnce) {
  Answer({0x00000004, TRUE, 10, 0, 22631, true});
  EXPECT_TRUE(IsNtPlatform());
  Answer({0x80000004, TRUE, 1, 0, 0, false});
  EXPECT_TRUE(IsNtPlatform());
  EXPECT_EQ(versionQuestions, 1);
  EXPECT_EQ(extendedQuestions, 1);
}

TEST_F(OsVersionTest, AVersionThatWasNotReportedIsAskedForAgain) {
  Answer({0x00000004, FALSE, 0, 0, 0, true});
  EXPECT_TRUE(IsNtPlatform());
  EXPECT_TRUE(IsNtPlatform());
  EXPECT_EQ(extendedQuestions, 2);
}

TEST_F(OsVersionTest, ThisSystemIsOfTheNtFamily) {
  TheRig().UseReal<::GetVersion>();
  TheRig().UseReal<::GetVersionExA>();
  EXPECT_TRUE(IsNtPlatform());
}

// ---- at least a given version

struct LeastCase {
  VersionCase system;
  uint32_t major, minor;
  bool isAtLeast;
};

class OsVersionLeastTest : public OsVersionAnswers, public testing::WithParamInterface<LeastCase> {};

TEST_P(OsVersionLeastTest, IsComparedByItsParts) {
  Answer(GetParam().system);
  EXPECT_EQ(IsVersionAtLeast(GetParam().major, GetParam().minor), GetParam().isAtLeast);
}

const LeastCase kLeast[] = {
    {{0x0000000A, TRUE, 10, 0, 26100, true}, 6, 0, true},
    {{0x00000006, TRUE, 6, 0, 0, true}, 6, 0, true},
    {{0x00000005, TRUE, 5, 255, 0xFFFF, true}, 6, 0, false},
    {{0x00000005, TRUE, 5, 1, 2600, true}, 5, 1, true},
    {{0x00000005, TRUE, 5, 0, 2195, true}, 5, 1, false},
    {{0x00000005, TRUE, 6, 1, 7601, true}, 6, 2, false},
    {{0x00000005, TRUE, 6, 3, 9600, true}, 6, 2, true},
    // Only the low bits of minor version and build count.
    {{0x00000005, TRUE, 5, 0x100, 0, true}, 6, 0, false},
    {{0x00000005, TRUE, 5, 0x100, 0, true}, 5, 1, false},
    {{0x00000005, TRUE, 5, 255, 0x10000, true}, 6, 0, false},
    // A system that does not report its version, and those of the 9x family.
    {{0x0000000A, FALSE, 10, 0, 26100, true}, 6, 0, false},
    {{0x0000000A, FALSE, 10, 0, 26100, true}, 4, 0, false},
    {{0x80000004, TRUE, 10, 0, 0, false}, 6, 0, false},
    {{0x8000000A, TRUE, 10, 0, 0, false}, 6, 0, false},
    {{0x80000003, TRUE, 10, 0, 0, false}, 1, 0, true},
    {{0x80000003, TRUE, 10, 0, 0, false}, 2, 0, false},
};
INSTANTIATE_TEST_SUITE_P(Versions, OsVersionLeastTest, testing::ValuesIn(kLeast));

TEST_F(OsVersionTest, OneQuestionServesBoth) {
  Answer({0x0000000A, TRUE, 10, 0, 26100, true});
  EXPECT_TRUE(IsVersionAtLeast(6, 0));
  EXPECT_TRUE(IsNtPlatform());
  EXPECT_FALSE(IsVersionAtLeast(11, 0));
  EXPECT_EQ(versionQuestions, 1);
  EXPECT_EQ(extendedQuestions, 1);
}

}  // namespace os_version_test
