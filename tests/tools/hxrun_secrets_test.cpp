// Secrets stay out of everything that hxrun prints: the password of the work item's account, and the new one
// of the server's account.
#include <gtest/gtest.h>

#include "install/install_rig.h"
#include "rig/print.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {
namespace {

constexpr char kMark[] = "<password>";

TEST(HxRunSecretsTest, ThePasswordOfTheWorkItem) {
  LayDownHxRun();
  // With characters that the trace escapes.
  const std::string password = "Ost\\rel\"7\tx";
  WriteBytes(L"C:\\hxrun-given\\p.txt",
             "PROP_TASKUSER=meter\nPROP_TASKPASS=" + password + "\nDIR_CLIENT=C:\\hxrun-given\\\n");
  for (const wchar_t* mode : {L"--yes --trace ", L"--dry-run --trace ", L"--yes "}) {
    const HxRun run = RunHxRun(std::wstring(mode) + L"--properties C:\\hxrun-given\\p.txt CustomAction6");
    for (const std::string& form : {password, std::string("Ost\\\\rel"), std::string("\\\"7\\tx")}) {
      EXPECT_EQ((run.output + run.errors).find(form), std::string::npos) << run.output;
    }
    if (std::wstring(mode) == L"--yes --trace ") {
      EXPECT_EQ(run.status, 0u) << run.errors;
      EXPECT_EQ(run.Lines("call: ITask.SetAccountInformation"),
                std::vector<std::string>{std::string("(\"meter\", \"") + kMark + "\") = 0"});
    }
  }
  EXPECT_EQ(RunHxRun(L"--yes CustomAction7").status, 0u);
  DeleteFolder(L"C:\\hxrun-given");
}

// A short password is a part of other words, which stay as they are.
TEST(HxRunSecretsTest, AShortPassword) {
  LayDownHxRun();
  const std::wstring given = L"CustomAction6 PROP_TASKUSER=root DIR_CLIENT=C:\\hxrun-given\\ PROP_TASKPASS=";
  const HxRun run = RunHxRun(L"--dry-run --trace " + given + L"e");
  EXPECT_EQ(run.status, 0u) << run.output << run.errors;
  EXPECT_EQ(run.Lines("call: ITask.SetAccountInformation"),
            std::vector<std::string>{std::string("(\"root\", \"") + kMark + "\") = 0"});
  EXPECT_EQ(run.Lines("    ITask.SetAccountInformation"),
            std::vector<std::string>{std::string("(\"root\", \"") + kMark + "\") = 0"});
  std::string rest = run.output;
  for (size_t at = rest.find(kMark); at != std::string::npos; at = rest.find(kMark)) {
    EXPECT_EQ(rest.substr(at - 1, 1) + rest.substr(at + sizeof kMark - 1, 1), "\"\"") << rest.substr(at);
    rest.erase(at, sizeof kMark - 1);
  }
  EXPECT_EQ(run.Lines("returned "), std::vector<std::string>{"0: success, if all of this succeeds"});
}

TEST(HxRunSecretsTest, ThePasswordOfTheServersAccount) {
  LayDownHxRun();
  for (const wchar_t* mode : {L"--yes --trace ", L"--dry-run --trace ", L"--yes ", L"--dry-run "}) {
    const HxRun run = RunHxRun(std::wstring(mode) +
                               L"CustomAction23 PROP_ACCOUNTTYPE=1 PROP_ACCOUNTID=hxmeter "
                               L"PROP_ACCOUNTPASS=EarlierPassword");
    const std::string before = run.output + run.errors;
    std::string all = before;
    EXPECT_FALSE(install::HidePasswords(all)) << before;
    EXPECT_EQ(all.find("EarlierPassword"), std::string::npos) << all;
    EXPECT_EQ(run.Lines("set: PROP_ACCOUNTPASS"),
              std::vector<std::string>{std::string(" = \"") + kMark + "\" (was \"" + kMark + "\")"});
    // A dry run ends where the new account is needed.
    EXPECT_EQ(run.status, std::wstring(mode).find(L"dry") == std::wstring::npos ? 0u : 4u);
  }
  EXPECT_EQ(RunHxRun(L"--yes CustomAction24 PROP_ACCOUNTID=hxmeter PROP_ACCOUNTNAME=hxmeter").status, 0u);
}

}  // namespace
}  // namespace hxrun_test
