// CustomAction23 and CustomAction24 with each call failing once. No account is left unpublished, no wrong one
// is deleted, and the published properties are correct.

#include "actions/security/service_account_support.h"

namespace service_account_sweep_test {

using service_account_test::kNoAccount;

class ServiceAccountSweepTest : public service_account_test::ServiceAccountTest {
 protected:
  static constexpr char kUsingSystem[] = "Hx Setup Log: no service account, using LocalSystem";

  void CheckCreation(const rig::SweepRun& run, const char* domain) {
    // A property that cannot be set cannot be correct.
    if (run.name == "MsiSetPropertyW") return;
    const rig::InstallerSession& installer = run.scene.world.installer;
    bool isLocal = Accounts().users.count("svc") != 0;
    bool isOfDomain = DomainUsers().count("svc") != 0;
    std::string published = Published(run.scene.world);
    std::vector<std::string> log = installer.Log();
    bool usesSystem = std::find(log.begin(), log.end(), kUsingSystem) != log.end();
    if (isLocal || isOfDomain) {
      EXPECT_FALSE(isLocal && isOfDomain) << run.call;
      std::string name = run.name == "GetComputerNameW" ? "." : isLocal ? "PC7" : domain;
      EXPECT_EQ(published, "svc|<password>|" + name) << run.call;
      EXPECT_FALSE(usesSystem) << run.call;
      const rig::Account& account = (isLocal ? Accounts().users : DomainUsers())["svc"];
      if (run.call.find("SetPassword") == std::string::npos)
        EXPECT_EQ(account.password, rig::kSecretMark) << run.call;
    } else {
      EXPECT_EQ(published, kNoAccount) << run.call;
      if (run.name.rfind("MsiCreateRecord", 0) != 0 && run.name.rfind("MsiRecordSet", 0) != 0 &&
          run.name != "MsiProcessMessage") {
        EXPECT_TRUE(usesSystem) << run.call;
      }
    }
    CheckRight(run, log, isLocal || isOfDomain);
    EXPECT_EQ(Accounts().users.count("other"), 1u) << run.call;
    EXPECT_EQ(DomainUsers().count("other"), 1u) << run.call;
  }
  // If the account has no right, the log says so.
  void CheckRight(const rig::SweepRun& run, const std::vector<std::string>& log, bool isMade) {
    bool isTold = std::find(log.begin(), log.end(),
                            "Hx Setup Log: could not grant right to logon as service") != log.end();
    EXPECT_EQ(Accounts().rights.empty(), !isMade || isTold) << run.call;
    EXPECT_LE(Accounts().rights.size(), 1u) << run.call;
  }
  void Populate() {
    Accounts().users["other"];
    DomainUsers()["other"];
  }
  void PopulateForDeletion() {
    Populate();
    Accounts().users["svc"];
    DomainUsers()["svc"];
    Directory().registered = {"CN=svc,CN=Users,DC=CORP HOST/PC7"};
  }
  // Expects that the account "svc" is deleted only where the run deletes it, and that nothing else changes.
  void CheckDeletion(const rig::SweepRun& run, bool deletesLocal, bool deletesOfDomain) {
    EXPECT_EQ(Accounts().users.count("other"), 1u) << run.call;
    EXPECT_EQ(DomainUsers().count("other"), 1u) << run.call;
    if (!deletesLocal) EXPECT_EQ(Accounts().users.count("svc"), 1u) << run.call;
    if (!deletesOfDomain) EXPECT_EQ(DomainUsers().count("svc"), 1u) << run.call;
    EXPECT_EQ(Directory().registered.count("CN=svc,CN=Users,DC=CORP HOST/PC7"), 1u) << run.call;
    EXPECT_TRUE(run.scene.world.installer.Published().empty()) << run.call;
    // If the account was deleted, the log says so, unless logging is what failed.
    bool isGone = Accounts().users.count("svc") == 0 || DomainUsers().count("svc") == 0;
    std::vector<std::string> log = run.scene.world.installer.Log();
    bool isLogging = run.name.rfind("MsiCreateRecord", 0) == 0 || run.name.rfind("MsiRecordSet", 0) == 0 ||
                     run.name == "MsiProcessMessage";
    if (isGone && !isLogging) {
      ASSERT_EQ(log.size(), 1u) << run.call;
      EXPECT_EQ(log[0].rfind("Hx Setup Log: deleting ", 0), 0u) << run.call;
    }
  }
};

TEST_F(ServiceAccountSweepTest, ALocalAccount) {
  size_t calls = SweepAction(
      23,
      [this](rig::World& world) {
        Populate();
        world.installer.Set("PROP_ACCOUNTTYPE", "1");
      },
      [this](const rig::SweepRun& run) { CheckCreation(run, "PC7"); });
  EXPECT_GT(calls, 20u);
}

TEST_F(ServiceAccountSweepTest, AnAccountOfTheDomain) {
  size_t calls = SweepAction(
      23,
      [this](rig::World& world) {
        Populate();
        world.installer.Set("PROP_ACCOUNTTYPE", "0");
        world.installer.Set("PROP_SERVICENAME", "HOST");
      },
      [this](const rig::SweepRun& run) { CheckCreation(run, "CORP"); });
  EXPECT_GT(calls, 60u);
}

TEST_F(ServiceAccountSweepTest, AnAccountWhoseIdentifierNeedsMoreRoom) {
  SweepAction(
      23,
      [this](rig::World& world) {
        Populate();
        world.installer.Set("PROP_ACCOUNTTYPE", "1");
        Accounts().demands = {{28, 300}, {400, 20}};
      },
      [this](const rig::SweepRun& run) { CheckCreation(run, "PC7"); });
}

TEST_F(ServiceAccountSweepTest, AReportOfFailure) {
  for (bool refusesRecords : {false, true}) {
    SweepAction(
        23,
        [this, refusesRecords](rig::World& world) {
          Populate();
          world.installer.Set("PROP_ACCOUNTTYPE", "0");
          world.installer.Set("PROP_SILENCE", "-1");
          world.installer.Set("ProductName", "P");
          world.installer.refusesRecords = refusesRecords;
          Accounts().workgroup = "WORKGROUP";
        },
        [this, refusesRecords](const rig::SweepRun& run) {
          if (run.name == "MsiSetPropertyW") return;
          // If the workgroup is not available, the account is a local one.
          bool isLocal = Accounts().users.count("svc") != 0;
          EXPECT_EQ(Published(run.scene.world), isLocal ? "svc|<password>|PC7" : kNoAccount) << run.call;
          bool isReporting = run.name == "MessageBoxA" || run.name == "HeapAlloc" ||
                             run.call.find("PROP_") != std::string::npos;
          if (refusesRecords && !isLocal && !isReporting) {
            EXPECT_EQ(run.scene.world.desktop.boxes.size(), 1u) << run.call;
          }
        });
  }
}

TEST_F(ServiceAccountSweepTest, NoAccountAtAll) {
  SweepAction(
      23, [this](rig::World&) { Populate(); },
      [this](const rig::SweepRun& run) {
        if (run.name != "MsiSetPropertyW") EXPECT_EQ(Published(run.scene.world), kNoAccount) << run.call;
        EXPECT_EQ(Accounts().users.size() + DomainUsers().size(), 2u) << run.call;
      });
}

TEST_F(ServiceAccountSweepTest, TheDeletionOfALocalAccount) {
  for (bool isRollback : {false, true}) {
    SweepAction(
        isRollback ? 23 : 24,
        [this, isRollback](rig::World& world) {
          PopulateForDeletion();
          world.installer.rollback = isRollback;
          world.installer.Set("PROP_ACCOUNTNAME", "svc");
          world.installer.Set("PROP_ACCOUNTDOMAIN", "PC7");
          SetService("pc7\\svc");
        },
        [this](const rig::SweepRun& run) {
          if (run.name == "MsiGetMode") return;
          CheckDeletion(run, true, false);
        });
  }
}

TEST_F(ServiceAccountSweepTest, TheDeletionOfAPublishedAccount) {
  SweepAction(
      24,
      [this](rig::World& world) {
        PopulateForDeletion();
        world.installer.Set("PROP_ACCOUNTNAME", "svc");
        world.installer.Set("PROP_ACCOUNTDOMAIN", "CORP");
      },
      // If the published domain cannot be read, the account counts as one of this computer.
      [this](const rig::SweepRun& run) {
        bool lacksDomain =
            run.call.find("PROP_ACCOUNTDOMAIN") != std::string::npos || run.name == "HeapAlloc";
        CheckDeletion(run, lacksDomain, true);
      });
}

TEST_F(ServiceAccountSweepTest, TheDeletionOfAnAccountOfTheDomain) {
  size_t calls = SweepAction(
      24,
      [this](rig::World&) {
        PopulateForDeletion();
        SetService("CORP\\svc");
      },
      [this](const rig::SweepRun& run) { CheckDeletion(run, false, true); });
  EXPECT_GT(calls, 40u);
}

TEST_F(ServiceAccountSweepTest, AnAccountOfAnotherNameStays) {
  for (const char* account : {".\\other", "CORP\\other", "PC7\\other"}) {
    SweepAction(
        24,
        [this, account](rig::World&) {
          PopulateForDeletion();
          SetService(account);
        },
        [this](const rig::SweepRun& run) { CheckDeletion(run, false, false); });
  }
}

}  // namespace service_account_sweep_test
