// CustomAction17 in the script of an installation, with every combination of the markers that a database
// conversion can leave, with and without the "-" before the folder.
//
// A failure ends an installation, so each failing combination is a separate run; all others share one. The
// package is the client's, with the actions added to a copy of it.

#include "install/server_rig.h"

namespace install {
namespace {

constexpr const char* kMarkers[] = {"dbcon_completed.txt", "dbcon_cancelled.txt", "dbcon_failed.txt",
                                    "dbcon_nospace.txt"};
constexpr unsigned kCompleted = 1, kCancelled = 2, kAllCombinations = 16;

// A library's entry point, deferred, without impersonation.
constexpr int kDeferredAction = 1 + 1024 + 2048;
// Right after InstallInitialize.
constexpr int kFirstPlace = 1501;

class ConversionTest : public ServerTest {
 protected:
  /// Writes a folder with a combination's markers and other files, and adds an action that reads it.
  void Judge(unsigned combination, bool onlyCleans) {
    std::string name = "Judge" + std::to_string(folders_.size());
    std::wstring folder = elsewhere + L"\\" + ToWide(name);
    Tree content = others_;
    for (unsigned i = 0; i < 4; ++i) {
      if (combination & (1u << i)) content[kMarkers[i]] = "marker";
    }
    WriteTree(folder, content);
    folders_.push_back(folder);
    std::string place = std::to_string(kFirstPlace + folders_.size());
    statements_.push_back("INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES ('" +
                          name + "', " + std::to_string(kDeferredAction) + ", 'hxsetup', 'CustomAction17')");
    statements_.push_back(
        "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES ('" + name +
        "', 'NOT REMOVE', " + place + ")");
    statements_.push_back("INSERT INTO `Property` (`Property`, `Value`) VALUES ('" + name + "', '" +
                          (onlyCleans ? "-" : "") + FromWide(folder) + "\\')");
  }

  const InstallerRun& RunJudges() {
    const std::wstring package = elsewhere + L"\\conversion.msi";
    ChangePackage(Client().path, package, statements_);
    return Msiexec("judge", L"/i \"" + package + L"\" /qn");
  }

  size_t JudgeCount() const { return folders_.size(); }

  /// Expects that all markers are gone and nothing else is.
  void ExpectCleaned() {
    for (const std::wstring& folder : folders_) EXPECT_EQ(ReadTree(folder), others_) << FromWide(folder);
  }

  /// Returns the exit code of a run in which CustomAction17 finds `combination`.
  static DWORD CodeOf(unsigned combination) {
    if (combination & kCompleted) return ERROR_SUCCESS;
    return combination & kCancelled ? ERROR_INSTALL_USEREXIT : ERROR_INSTALL_FAILURE;
  }

 private:
  const Tree others_ = {{"dbcon_other.txt", "not a marker"}, {"dbcon_completed.txt.bak", "nor this"}};
  std::vector<std::string> statements_;
  std::vector<std::wstring> folders_;
};

class FailedConversionTest : public ConversionTest, public testing::WithParamInterface<unsigned> {};

TEST_P(FailedConversionTest, EndsTheInstallation) {
  Judge(GetParam(), false);
  EXPECT_EQ(RunJudges().exitCode, CodeOf(GetParam()));
  ExpectCleaned();
  EXPECT_FALSE(Client().IsInstalled());
}

// The combinations without dbcon_completed.txt: the even numbers.
INSTANTIATE_TEST_SUITE_P(Combination, FailedConversionTest, testing::Range(0u, kAllCombinations, 2u));

TEST_F(ConversionTest, CompletedConversionsAndCleaningSucceed) {
  for (unsigned combination = 0; combination < kAllCombinations; ++combination) {
    Judge(combination, true);
    if (CodeOf(combination) == ERROR_SUCCESS) Judge(combination, false);
  }
  const InstallerRun& run = RunJudges();
  EXPECT_EQ(run.exitCode, 0u);
  ExpectCleaned();
  // This engine logs a failure as 0, Windows Installer as 2 or 3.
  for (const char* failure : {"0.", "2.", "3."}) {
    for (const std::string& line : run.LinesWith(std::string("Return value ") + failure)) {
      EXPECT_EQ(line.find(": Judge"), std::string::npos) << line;
    }
  }
  std::vector<std::string> judges;
  for (size_t i = 0; i < JudgeCount(); ++i) judges.push_back("Judge" + std::to_string(i));
  EXPECT_EQ(run.ScriptActions({"Judge"}), judges);
  EXPECT_TRUE(Client().IsInstalled());
  EXPECT_EQ(Remove(Client()).exitCode, 0u);
}

}  // namespace
}  // namespace install
