// What accept.exe decides: which machines it refuses, what a run's results mean, and what the report says.

#include <gtest/gtest.h>

#include "acceptance/facts.h"
#include "acceptance/limit.h"
#include "acceptance/report.h"
#include "machine/texts.h"

namespace acceptance {
namespace {

using Texts = std::vector<std::string>;

Facts GoodMachine() {
  Facts facts;
  facts.native = "x64";
  facts.major = 10;
  facts.build = 26100;
  facts.engine = "Microsoft's";
  facts.isElevated = true;
  facts.freeBytes = kNeededBytes;
  facts.codePage = 1252;
  facts.windowsDrive = "C:";
  facts.folderLength = kLongestFolder;
  facts.reportLength = kLongestReport;
  facts.userLanguage = "en-GB";
  facts.systemLanguage = "en-US";
  return facts;
}

TEST(AcceptanceRefusalTest, AGoodMachineIsTaken) {
  EXPECT_EQ(Refusals(GoodMachine(), "x64", false, true), Texts());
  EXPECT_EQ(Remarks(GoodMachine(), "x64"), Texts());
  Facts arm = GoodMachine();
  arm.native = "arm64";
  EXPECT_EQ(Refusals(arm, "arm64", false, true), Texts());
}

TEST(AcceptanceRefusalTest, AnX64ArchiveRunsEmulatedAndAnArm64ArchiveDoesNot) {
  Facts facts = GoodMachine();
  facts.native = "arm64";
  EXPECT_EQ(Refusals(facts, "x64", false, true), Texts());
  EXPECT_EQ(Remarks(facts, "x64"),
            Texts{"this archive is for x64 and runs emulated on this ARM64 machine; the library for "
                  "ARM64 is in the other archive"});
  EXPECT_EQ(Refusals(GoodMachine(), "arm64", false, true),
            Texts{"this archive is for arm64, and this machine is x64: use the archive for x64"});
}

TEST(AcceptanceRefusalTest, EachFaultSaysWhatToDo) {
  struct Case {
    void (*spoil)(Facts&);
    const char* text;
  };
  const Case cases[] = {
      {[](Facts& facts) { facts.isElevated = false; },
       "this window has no administrator's rights: right-click \"Command Prompt\", choose \"Run as "
       "administrator\", and "
       "start accept.cmd there"},
      {[](Facts& facts) { facts.build = kFirstBuild - 1; },
       "this Windows is older than Windows 10 version 1607 or Windows Server 2016 (build 14393): it has "
       "build 14392"},
      {[](Facts& facts) { facts.freeBytes = kNeededBytes - 1; },
       "the drive of Windows has only 2047 MB free: make 2048 MB free"},
      {[](Facts& facts) { facts.folderLength = kLongestFolder + 1; },
       "the path of this folder has 101 characters: move it to one with at most 100, such as C:\\accept"},
      {[](Facts& facts) { facts.reportLength = kLongestReport + 1; },
       "the path of the report has 111 characters: name one with at most 110, such as C:\\report"},
      {[](Facts& facts) { facts.fitsCodePage = false; },
       "the path of this folder or of the report has characters that are not in the 8-bit code page 1252 of "
       "this "
       "Windows: use folders with plain letters, such as C:\\accept and C:\\report"},
      {[](Facts& facts) { facts.isOnNetwork = true; },
       "this folder or that of the report is on the network: copy the archive to a drive of this computer, "
       "such "
       "as C:\\accept, and start accept.cmd there"},
      {[](Facts& facts) { facts.isInOneDrive = true; },
       "this folder or that of the report is in OneDrive, which opens the files during the tests and copies "
       "the "
       "logs to the network: move the archive to C:\\accept, and start accept.cmd there"},
      {[](Facts& facts) { facts.windowsDrive = "D:"; },
       "Windows is on the drive D:, and the tests expect it on C:. Use another machine"},
      {[](Facts& facts) { facts.hasShortNames = false; },
       "the drive of the temporary folder gives no short (8.3) names, which some tests need: run \"fsutil "
       "8dot3name set C: "
       "0\" and start again"},
      {[](Facts& facts) { facts.damaged = {"a", "b", "c", "d", "e", "f", "g"}; },
       "the archive is damaged or not complete: extract all of it again, into an empty folder. Missing or "
       "changed: a, b, c, "
       "d, e and 2 more"},
  };
  for (const Case& fault : cases) {
    Facts facts = GoodMachine();
    fault.spoil(facts);
    EXPECT_EQ(Refusals(facts, "x64", false, true), Texts{fault.text});
  }
}

TEST(AcceptanceRefusalTest, AMachineInUseIsRefusedUnlessThePersonGoesOn) {
  Facts facts = GoodMachine();
  facts.inUse = {"the service Vantor", "C:\\Metering"};
  EXPECT_EQ(
      Refusals(facts, "x64", false, true),
      Texts{
          "this machine seems to be in use, and the tests would change or delete these: the service Vantor; "
          "C:\\Metering. Use a machine that you can reset. /in-use goes on all the same, /no-install leaves "
          "out the "
          "tests that change the machine"});
  EXPECT_EQ(Refusals(facts, "x64", true, true), Texts());
  EXPECT_EQ(Refusals(facts, "x64", false, false), Texts());
}

TEST(AcceptanceRefusalTest, OnlyTheInstallTestsNeedEnglishAndALocalUser) {
  struct Case {
    void (*spoil)(Facts&);
    const char* text;
  };
  const Case cases[] = {
      {[](Facts& facts) { facts.userLanguage = "de-DE"; },
       "the install tests read texts of Windows in English, and here the user's language is de-DE and that "
       "of "
       "Windows en-US: use a Windows that was installed in English. /no-install leaves out these tests"},
      {[](Facts& facts) { facts.systemLanguage = "fr-FR"; },
       "the install tests read texts of Windows in English, and here the user's language is en-GB and that "
       "of "
       "Windows fr-FR: use a Windows that was installed in English. /no-install leaves out these tests"},
      {[](Facts& facts) { facts.isLocalUser = false; },
       "this user has no account of this computer, which the install tests need: add a local user to the "
       "administrators, log on with it, and start again. /no-install leaves out these tests"},
  };
  for (const Case& fault : cases) {
    Facts facts = GoodMachine();
    fault.spoil(facts);
    EXPECT_EQ(Refusals(facts, "x64", false, true), Texts{fault.text});
    EXPECT_EQ(Refusals(facts, "x64", false, false), Texts());
  }
}

TEST(AcceptanceRefusalTest, English) {
  for (const char* language : {"en", "en-US", "en-GB"}) EXPECT_TRUE(IsEnglish(language)) << language;
  for (const char* language : {"", "de-DE", "enu", "fr-CA"}) EXPECT_FALSE(IsEnglish(language)) << language;
}

TEST(AcceptanceRefusalTest, APathMustFitTheCodePage) {
  EXPECT_TRUE(FitsCodePage(L"C:\\Z\u00E4hler & \u20AC", 1252));
  EXPECT_FALSE(FitsCodePage(L"C:\\Z\u00E4hler \u0416", 1252));
  // A letter for which another one would be taken: that is another path.
  EXPECT_FALSE(FitsCodePage(L"C:\\\u0100", 1252));
  EXPECT_TRUE(FitsCodePage(L"C:\\\u0416", 1251));
  EXPECT_FALSE(FitsCodePage(L"C:\\Z\u00E4hler", 1251));
  EXPECT_TRUE(FitsCodePage(L"C:\\\u0416\u00E4", CP_UTF8));
  EXPECT_TRUE(FitsCodePage(L"", 1252));
}

TEST(AcceptanceRefusalTest, APathInAFolder) {
  EXPECT_TRUE(IsIn(L"C:\\Users\\a\\OneDrive\\x", L"C:\\Users\\A\\OneDrive"));
  EXPECT_TRUE(IsIn(L"C:\\Users\\a\\OneDrive", L"C:\\Users\\a\\OneDrive"));
  EXPECT_TRUE(IsIn(L"D:\\x", L"D:\\"));
  EXPECT_FALSE(IsIn(L"C:\\Users\\a\\OneDrive 2\\x", L"C:\\Users\\a\\OneDrive"));
  EXPECT_FALSE(IsIn(L"C:\\x", L""));
}

TEST(AcceptanceRefusalTest, AnotherCodePageIsRemarked) {
  Facts facts = GoodMachine();
  facts.codePage = 932;
  EXPECT_EQ(Remarks(facts, "x64"),
            Texts{"the system's 8-bit code page is 932: two tests of SettingsTest need 1252 and fail"});
}

// ---- the facts of this machine

class AcceptanceFactsTest : public testing::Test {
 protected:
  void SetUp() override {
    wchar_t temporary[MAX_PATH];
    ASSERT_NE(GetTempPathW(MAX_PATH, temporary), 0u);
    folder_ = temporary + (L"hx acceptance " + std::to_wstring(GetCurrentProcessId()));
    ASSERT_TRUE(CreateDirectoryW(folder_.c_str(), nullptr));
  }
  void TearDown() override {
    for (const wchar_t* name : {L"files.txt", L"abc.txt", L"service.txt"})
      DeleteFileW((folder_ + L"\\" + name).c_str());
    EXPECT_TRUE(RemoveDirectoryW(folder_.c_str()));
  }
  void Write(const wchar_t* name, const std::string& bytes) {
    HANDLE file =
        CreateFileW((folder_ + L"\\" + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
  }

  // The hash of "abc", from the standard of the hash.
  const std::string hash_ = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  std::wstring folder_;
};

TEST_F(AcceptanceFactsTest, ChangedAndMissingFilesAreFound) {
  EXPECT_EQ(Damaged(folder_), Texts{"files.txt"});
  Write(L"files.txt", "");
  EXPECT_EQ(Damaged(folder_), Texts{"files.txt"});
  Write(L"abc.txt", "abc");
  Write(L"files.txt", hash_ + "  abc.txt\r\n");
  EXPECT_EQ(Damaged(folder_), Texts());
  Write(L"files.txt", hash_ + "  abc.txt\r\n" + hash_ + "  libraries\\gone.dll\r\n");
  EXPECT_EQ(Damaged(folder_), Texts{"libraries\\gone.dll"});
  Write(L"abc.txt", "abd");
  EXPECT_EQ(Damaged(folder_), (Texts{"abc.txt", "libraries\\gone.dll"}));
}

TEST_F(AcceptanceFactsTest, ThisMachine) {
  const Facts facts = Gather(folder_);
#if defined(__aarch64__)
  EXPECT_EQ(facts.native, "arm64");
#else
  EXPECT_EQ(facts.native, "x64");
#endif
  EXPECT_GE(facts.build, kFirstBuild);
  EXPECT_TRUE(facts.isElevated);
  EXPECT_TRUE(facts.hasShortNames);
  EXPECT_EQ(facts.folderLength, folder_.size());
  EXPECT_EQ(facts.reportLength, 0u);
  EXPECT_TRUE(facts.fitsCodePage);
  EXPECT_FALSE(facts.isOnNetwork);
  EXPECT_FALSE(facts.isInOneDrive);
  EXPECT_EQ(facts.userLanguage, "en-US");
  EXPECT_EQ(facts.systemLanguage, "en-US");
  EXPECT_TRUE(facts.isLocalUser);
  EXPECT_GT(facts.freeBytes, 0u);
  EXPECT_EQ(facts.inUse, Texts());
  EXPECT_EQ(facts.time.size(), sizeof "2026-11-22 06:30:00" - 1);
  // A service of this name is found, and so is a key.
  HKEY key;
  ASSERT_EQ(RegCreateKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Brackwell", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                            &key, nullptr),
            ERROR_SUCCESS);
  RegCloseKey(key);
  EXPECT_EQ(Gather(folder_).inUse, Texts{"the key HKLM\\SOFTWARE\\Brackwell"});
  RegDeleteKeyA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Brackwell");
}

TEST_F(AcceptanceFactsTest, TheReportsFolderIsLookedAtToo) {
  const Facts facts = Gather(folder_, L"C:\\\u0416");
  EXPECT_EQ(facts.reportLength, 4u);
  EXPECT_FALSE(facts.fitsCodePage);
  EXPECT_FALSE(Gather(L"C:\\\u0416").fitsCodePage);
  EXPECT_TRUE(Gather(folder_, L"\\\\server\\share\\report").isOnNetwork);
  EXPECT_TRUE(Gather(L"\\\\server\\share").isOnNetwork);
  ASSERT_TRUE(SetEnvironmentVariableW(L"OneDriveCommercial", L"C:\\Cloud"));
  EXPECT_TRUE(Gather(folder_, L"C:\\cloud\\report").isInOneDrive);
  EXPECT_TRUE(Gather(L"C:\\Cloud").isInOneDrive);
  EXPECT_FALSE(Gather(folder_, L"C:\\Clouds").isInOneDrive);
  SetEnvironmentVariableW(L"OneDriveCommercial", nullptr);
}

// ---- the time limit

class AcceptanceLimitTest : public AcceptanceFactsTest {
 protected:
  std::string Output() {
    std::FILE* file = _wfopen((folder_ + L"\\abc.txt").c_str(), L"rb");
    char text[200] = {};
    if (file) {
      std::fread(text, 1, sizeof text - 1, file);
      std::fclose(file);
    }
    return text;
  }
};

TEST_F(AcceptanceLimitTest, TheStatusAndTheOutputAreKept) {
  EXPECT_EQ(RunLimited(L"cmd.exe /d /c echo said & exit 7", folder_ + L"\\abc.txt", 60), 7u);
  EXPECT_EQ(Output().substr(0, 4), "said");
  EXPECT_EQ(RunLimited(L"no-such-program.exe", folder_ + L"\\abc.txt", 60), kNotStarted);
}

TEST_F(AcceptanceLimitTest, AProgramThatTakesTooLongIsEnded) {
  const ULONGLONG start = GetTickCount64();
  EXPECT_EQ(RunLimited(L"cmd.exe /d /c for /l %i in (0,0,1) do @rem", folder_ + L"\\abc.txt", 1), kTimedOut);
  EXPECT_LT(GetTickCount64() - start, 30000u);
}

// ---- results

const char kXml[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="4" failures="1" disabled="1" errors="0" time="1." timestamp="2026-11-22T06:30:00.000" name="AllTests">
  <testsuite name="Life" tests="3" failures="1" disabled="1" skipped="1" errors="0" time="1.">
    <testcase name="Passes" file="a.cpp" line="1" status="run" result="completed" time="0." classname="Life" />
    <testcase name="Fails" file="a.cpp" line="2" status="run" result="completed" time="0." classname="Life">
      <failure message="Z:\a.cpp:12&#x0A;Expected equality of these values:&#x0A;  &quot;1&quot; &lt; 2" type=""><![CDATA[Z:\a.cpp:12
Expected]]></failure>
      <failure message="Z:\a.cpp:13&#x0A;another" type=""><![CDATA[x]]></failure>
      <properties>
        <property name="differs_rollback" value="1"/>
        <property name="differs_tasks" value="1"/>
      </properties>
    </testcase>
    <testcase name="IsLeftOut" file="a.cpp" line="3" status="run" result="skipped" time="0." classname="Life">
      <skipped message="Z:\a.cpp:20&#x0A;left out: no share"><![CDATA[x]]></skipped>
    </testcase>
    <testcase name="IsNotRun" file="a.cpp" line="4" status="notrun" result="suppressed" time="0." classname="Life" />
  </testsuite>
</testsuites>
)";

LevelResult Level(const char* name, std::vector<TestResult> tests) {
  LevelResult level;
  level.name = name;
  level.hasResults = true;
  level.tests = std::move(tests);
  return level;
}

TestResult Result(const char* name, Outcome outcome, Texts differs = {}) {
  return {name, outcome, "", std::move(differs)};
}

TEST(AcceptanceReportTest, ResultsAreRead) {
  const auto tests = TestsOf(kXml);
  ASSERT_EQ(tests.size(), 3u);
  EXPECT_EQ(tests[0].name, "Life.Passes");
  EXPECT_EQ(tests[0].outcome, Outcome::kPassed);
  EXPECT_EQ(tests[1].outcome, Outcome::kFailed);
  EXPECT_EQ(tests[1].message, "Expected equality of these values:");
  EXPECT_EQ(tests[1].differs, (Texts{"rollback", "tasks"}));
  EXPECT_EQ(tests[2].outcome, Outcome::kLeftOut);
  EXPECT_EQ(tests[2].message, "left out: no share");
  EXPECT_EQ(LastStarted("[ RUN      ] A.b\r\n[       OK ] A.b (0 ms)\r\n[ RUN      ] A.c\r\n"), "A.c");
  EXPECT_EQ(LastStarted("nothing"), "");
}

TEST(AcceptanceReportTest, Verdicts) {
  acceptance::Run run;
  EXPECT_EQ(VerdictOf(run).code, 2);
  EXPECT_EQ(VerdictOf(run).line, "not run: no test was run");
  run.levels = {Level("unit", {Result("A.a", Outcome::kPassed), Result("A.b", Outcome::kPassed)})};
  EXPECT_EQ(VerdictOf(run).code, 0);
  EXPECT_EQ(VerdictOf(run).line, "passed: 2 tests");
  run.levels.push_back(Level("install", {Result("B.a", Outcome::kLeftOut, {"shares"})}));
  EXPECT_EQ(VerdictOf(run).line, "passed: 2 tests; 1 left out");

  // A test that depends on a difference is not as expected on Microsoft's engine, and failed on Wine's.
  run.levels.push_back(Level("install", {Result("B.b", Outcome::kFailed, {"rollback"})}));
  EXPECT_EQ(VerdictOf(run).line, "failed: 1 of 3 tests; 1 left out");
  run.isMicrosofts = true;
  EXPECT_EQ(VerdictOf(run).code, 1);
  EXPECT_EQ(VerdictOf(run).line,
            "not as expected: 1 install test met something else than the documentation of Windows says; all "
            "other tests "
            "passed; 1 left out");
  run.levels[0].tests[0].outcome = Outcome::kFailed;
  EXPECT_EQ(VerdictOf(run).line, "failed: 1 of 3 tests; 1 more not as expected; 1 left out");
}

TEST(AcceptanceReportTest, AProgramThatBreaksOffFailsTheRun) {
  acceptance::Run run;
  LevelResult level;
  level.name = "actions";
  level.status = 0xC0000005;
  level.lastStarted = "A.crashes";
  run.levels = {Level("unit", {Result("A.a", Outcome::kPassed)}), level};
  EXPECT_EQ(VerdictOf(run).code, 1);
  EXPECT_EQ(VerdictOf(run).line,
            "failed: 0 of 1 test; the level actions broke off with status 0xc0000005, in A.crashes");
  run.levels[1].status = kTimedOut;
  EXPECT_EQ(VerdictOf(run).line,
            "failed: 0 of 1 test; the level actions was ended at its time limit, in A.crashes");
  run.levels[1].status = kNotStarted;
  EXPECT_EQ(VerdictOf(run).line, "failed: 0 of 1 test; the level actions could not be started");
  run.levels[1] = Level("actions", {Result("A.a", Outcome::kPassed)});
  run.levels[1].status = 1;
  EXPECT_EQ(VerdictOf(run).line, "failed: 0 of 2 tests; the level actions failed outside its tests");
}

// The engine's service goes on with the installation.
TEST(AcceptanceReportTest, AnInterruptedInstallationSaysToResetTheMachine) {
  acceptance::Run run;
  LevelResult level;
  level.name = "install";
  level.lastStarted = "A.waits";
  level.status = kTimedOut;
  run.levels = {level};
  EXPECT_EQ(
      VerdictOf(run).line,
      "failed: 0 of 0 tests; the level install was ended at its time limit, in A.waits (an installation may "
      "still be going on: reset the machine)");
  run.levels[0].status = 0xC0000005;
  EXPECT_EQ(VerdictOf(run).line,
            "failed: 0 of 0 tests; the level install broke off with status 0xc0000005, in A.waits (an "
            "installation may still be going on: reset the machine)");
}

TEST(AcceptanceReportTest, ALevelThatWasNeverRunFailsTheRun) {
  acceptance::Run run;
  run.levels = {Level("unit", {Result("A.a", Outcome::kPassed)})};
  AddMissingLevels(run, {"unit"});
  EXPECT_EQ(VerdictOf(run).line, "passed: 1 test");
  AddMissingLevels(run, {"unit", "install"});
  EXPECT_EQ(VerdictOf(run).code, 1);
  EXPECT_EQ(VerdictOf(run).line, "failed: 0 of 1 test; the level install could not be started");
}

TEST(AcceptanceReportTest, TheVerdictSaysWhatWasNotRun) {
  acceptance::Run run;
  run.levels = {Level("unit", {Result("A.a", Outcome::kPassed)})};
  run.leavesInstall = true;
  EXPECT_EQ(VerdictOf(run).line, "passed: 1 test; without the install tests");
  run.filter = "A.*";
  EXPECT_EQ(VerdictOf(run).line, "passed: 1 test; without the install tests; only tests that match A.*");
}

TEST(AcceptanceReportTest, TheWholeReport) {
  acceptance::Run run;
  run.isMicrosofts = true;
  run.processor = "x64";
  run.facts = {"engine: Microsoft's"};
  run.remarks = {"emulated"};
  run.levels = {Level("unit", {Result("A.a", Outcome::kPassed)}), Level("install", TestsOf(kXml))};
  run.levels[1].seconds = 1;
  run.differences = RowsOf("rollback\tnothing\tall\tRollback Installation\nshares\tyes\tno\tErrors\n");
  EXPECT_EQ(
      ReportOf(run),
      "not as expected: 1 install test met something else than the documentation of Windows says; all other "
      "tests "
      "passed; 1 left out\n"
      "\nMACHINE\n\n  engine: Microsoft's\n  archive for: x64\n  remark: emulated\n"
      "\nLEVELS\n\n  unit: 1 passed, 0 failed, 0 left out, in 0 seconds\n"
      "  install: 1 passed, 1 failed, 1 left out, in 1 second\n"
      "\nFAILED\n\n  install: Life.Fails (not as expected)\n    Expected equality of these values:\n"
      "\nLEFT OUT\n\n  install: Life.IsLeftOut\n    left out: no share\n"
      "\nWHERE THE ENGINES DIFFER\n\n"
      "  What is expected on Windows comes from its documentation. Before this run nobody had seen it.\n"
      "\n  rollback\n    Wine:     nothing\n    Windows:  all\n    says:     Rollback Installation\n"
      "    expected on Windows: 0 of 1 test saw it in this run\n"
      "\n  shares\n    Wine:     yes\n    Windows:  no\n    says:     Errors\n"
      "    no test of this run depends on it\n");
  run.isMicrosofts = false;
  EXPECT_NE(ReportOf(run).find("expected on Windows, never seen yet; 1 test of this run\n"),
            std::string::npos);
  EXPECT_EQ(FailedFilter(run.levels[1]), "Life.Fails");
}

}  // namespace
}  // namespace acceptance
