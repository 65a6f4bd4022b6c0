// The family of the operating system.

#include "format/os_version.h"

#include "rig/internals_test.h"

namespace os_version_test {

HX_INTERNAL(IsNtPlatform);

struct VersionCase {
  DWORD packed;
  BOOL told;
  DWORD major, minor, build;
  bool isNt;
};

class OsVersionTest : public rig::InternalsTest, public testing::WithParamInterface<VersionCase> {
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

TEST_F(OsVersionTest, WhatTheSystemDidNotTellIsAskedAgain) {
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

}  // namespace os_version_test
