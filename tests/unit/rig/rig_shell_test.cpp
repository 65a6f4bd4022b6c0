// The rig's own tests: known folders, command lines, functions with a format text.
#include <shlobj.h>

#include "unit/rig/rig_subject.h"

namespace rig_test {

TEST_F(RigTest, KnownFoldersAreGivenAndMustBeFreed) {
  wchar_t path[MAX_PATH];
  TheWorld().shell.Set(FOLDERID_UserProfiles, L"D:\\Us\u00E9rs");
  EXPECT_EQ(SubjectKnownFolder(&FOLDERID_UserProfiles, path, FALSE), S_OK);
  EXPECT_STREQ(path, L"D:\\Us\u00E9rs");
  EXPECT_EQ(TheRig().trace.Lines().at(3),
            "SHGetKnownFolderPath({0762D272-C50A-4BB0-A382-697DCD729B80}, 0, null, *) = 0");
  EXPECT_EQ(TheRig().trace.Lines().at(5), "CoTaskMemFree(task-memory#1)");
  EXPECT_EQ(EndOfAction(), "");
  EXPECT_EQ(SubjectKnownFolder(&FOLDERID_ProgramFilesX64, path, TRUE), S_OK);
  EXPECT_STREQ(path, L"C:\\Program Files");
  EXPECT_TRUE(Has(EndOfAction(), "task-memory#2 was not released"));
}

TEST_F(RigTest, KnownFoldersCanFail) {
  wchar_t path[MAX_PATH] = L"untouched";
  TheWorld().shell.Fail(FOLDERID_UserProfiles);
  EXPECT_EQ(SubjectKnownFolder(&FOLDERID_UserProfiles, path, FALSE), E_FAIL);
  TheWorld().shell.Fail(CSIDL_APPDATA, S_FALSE);
  EXPECT_EQ(SubjectFolder(CSIDL_APPDATA, path), S_FALSE);
  EXPECT_STREQ(path, L"untouched");
}

TEST_F(RigTest, FoldersAreGivenByNumber) {
  wchar_t path[MAX_PATH];
  EXPECT_EQ(SubjectFolder(CSIDL_PROGRAM_FILESX86, path), S_OK);
  EXPECT_STREQ(path, L"C:\\Program Files (x86)");
  TheWorld().shell.Set(CSIDL_PROGRAM_FILESX86, L"");
  EXPECT_EQ(SubjectFolder(CSIDL_PROGRAM_FILESX86, path), S_OK);
  EXPECT_STREQ(path, L"");
  EXPECT_TRUE(Has(Reported([&] { SubjectFolder(99, path); }), "no folder is arranged for CSIDL 99"));
}

TEST_F(RigTest, SplitCommandLinesMustBeFreed) {
  wchar_t last[MAX_PATH];
  EXPECT_EQ(SubjectSplit(L"x \"a b\" C:\\\u00E9", last, FALSE), 3);
  EXPECT_STREQ(last, L"C:\\\u00E9");
  EXPECT_EQ(TheRig().trace.Lines().at(2),
            "CommandLineToArgvW(\"x \\\"a b\\\" C:\\\\\xC3\xA9\", *) = local-memory#1");
  EXPECT_EQ(EndOfAction(), "");
  SubjectSplit(L"x", last, TRUE);
  EXPECT_TRUE(Has(EndOfAction(), "local-memory#2 was not released"));
}

TEST_F(RigTest, FormatTextsDescribeTheArguments) {
  wchar_t buffer[MAX_PATH];
  EXPECT_EQ(SubjectStamp(buffer, L"\u00E9", 7, -2, 3), 12);
  EXPECT_STREQ(buffer, L"\u00E9|0007 -2%|3");
  EXPECT_EQ(TheRig().trace.Lines().back(), "wsprintfW(*, \"%s|%04d %d%%|%u\", \"\xC3\xA9\", 7, -2, 3) = 12");
  SubjectStamp(buffer, nullptr, 7, 7, 3);
  EXPECT_TRUE(Has(TheRig().trace.Lines().back(), "|%u\", null, 7, 7, 3) = "));
  SubjectStampOther(buffer);
  EXPECT_TRUE(Has(TheRig().trace.Lines().back(), "wsprintfW(*, \"%d %hs %d\", 1, ...) = "));
}

TEST_F(RigTest, FormatTextsCanBeAnswered) {
  TheRig().On<::wsprintfW>([](wchar_t* buffer, const wchar_t*, va_list list) {
    buffer[0] = *va_arg(list, const wchar_t*);
    return va_arg(list, int);
  });
  wchar_t buffer[MAX_PATH];
  EXPECT_EQ(SubjectStamp(buffer, L"y", 7, -2, 3), 7);
  EXPECT_EQ(buffer[0], L'y');
}

TEST_F(RigTest, FormatTextsCanFail) {
  wchar_t buffer[MAX_PATH];
  TheRig().BeginCounting(2);
  EXPECT_EQ(SubjectStamp(buffer, L"x", 1, 2, 3), 0);
  TheRig().EndCounting();
  EXPECT_TRUE(TheRig().FailureApplied());
  EXPECT_TRUE(Has(TheRig().trace.Lines().back(), "= 0 (made to fail)"));
}

TEST_F(RigRealTest, FormatTextsCanBeReal) {
  wchar_t buffer[MAX_PATH];
  EXPECT_EQ(SubjectStamp(buffer, L"x", 1, 2, 3), 11);
  EXPECT_STREQ(buffer, L"x|0001 2%|3");
}

}  // namespace rig_test
