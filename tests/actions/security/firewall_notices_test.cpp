// What CustomAction5 shows the user: notices 25000 and 25001, and the message boxes that replace them.
#include "actions/security/firewall_support.h"

namespace firewall_notices_test {

using firewall_test::Calls;
using firewall_test::kProgram;
using Box = rig::Desktop::Box;
using Boxes = std::vector<Box>;
using Lines = std::vector<std::string>;

constexpr char kNotCustomized[] =
    "The installer was unable to customize the built-in Windows Firewall exception list.\n\n"
    "Consult the Hx documentation for firewall setup details.";
// On purpose: "The the", as in the library.
constexpr char kIgnored[] =
    "The the built-in Windows Firewall is currently configured to ignore its exception list.\n\n"
    "To enable the custom exception, use the Windows Firewall control panel to Uncheck \"Don't allow "
    "exceptions\".";
constexpr char kFixedTitle[] = "Halvorstead Vantor Platform Component";

class FirewallNoticesTest : public firewall_test::FirewallTest {
 protected:
  void Arrange(rig::World& world) override {
    FirewallTest::Arrange(world);
    TheFirewall().FailMethod("rules.Add", E_ACCESSDENIED);
    TheFirewall().ignoresExceptions = true;
    world.installer.Set("PROP_FIREWALLDATA", "Vantor@tcp/C:\\Vantor\\vt.exe");
  }
  // Runs the action with this value of "PROP_SILENCE". Returns the notices that were sent.
  Lines NoticesWith(const std::string& silence) {
    Installer().Set("PROP_SILENCE", silence);
    EXPECT_EQ(Run(5), 0u);
    return Notices();
  }
};

TEST_F(FirewallNoticesTest, AreSentForMinusOneOnly) {
  for (const char* silence : {"", "0", "1", "-", "-11", "-1 ", " -1", "-01"}) {
    EXPECT_EQ(NoticesWith(silence), Lines{}) << silence;
  }
  EXPECT_EQ(NoticesWith("-1"), Lines{"25000"});
}

TEST_F(FirewallNoticesTest, ForIgnoredExceptionsAreSentForMinusOneOnly) {
  MakeOld(TheWorld());
  for (const char* silence : {"", "0", "1", "-11"}) {
    EXPECT_EQ(NoticesWith(silence), Lines{}) << silence;
  }
  EXPECT_EQ(NoticesWith("-1"), Lines{"25001"});
}

TEST_F(FirewallNoticesTest, NeedAPropertyThatCanBeRead) {
  Installer().FailReading("PROP_SILENCE");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), Lines{});
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
}

TEST_F(FirewallNoticesTest, NeedAPropertyThatFits) {
  EXPECT_EQ(NoticesWith("-1" + std::string(126, '0')), Lines{});
  EXPECT_EQ(NoticesWith("-1" + std::string(300, '0')), Lines{});
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
}

// A notice for each entry that fails.
TEST_F(FirewallNoticesTest, AreSentForEachEntry) {
  SetList("a@tcp/C:\\a.exe;b@udp/C:\\b.exe;c@x/C:\\c.exe");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(Notices(), (Lines{"25000", "25000"}));
}

TEST_F(FirewallNoticesTest, HaveNoTextOfTheirOwn) {
  EXPECT_EQ(Run(5), 0u);
  const rig::Message& message = Installer().Messages().back();
  EXPECT_EQ(message.type, 0x02000030u);
  EXPECT_EQ(message.fields, (Lines{"", "25000", ""}));
}

// ---- boxes

// The count still holds the length of "-1", so only a name of one character fits.
TEST_F(FirewallNoticesTest, WithoutARecordABoxAppears) {
  Installer().refusesRecords = true;
  Installer().Set("ProductName", "V");
  std::vector<DWORD> counts;
  TheWorld().On<::MsiGetPropertyA>([&](MSIHANDLE, const char* name, char* buffer, DWORD* count) -> UINT {
    counts.push_back(*count);
    std::string value = name == std::string("PROP_SILENCE") ? "-1" : "V";
    std::copy(value.c_str(), value.c_str() + value.size() + 1, buffer);
    *count = static_cast<DWORD>(value.size());
    return ERROR_SUCCESS;
  });
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(counts, (std::vector<DWORD>{128, 2}));
  EXPECT_EQ(TheWorld().desktop.boxes, (Boxes{{kNotCustomized, "V", 0x30}}));
}

TEST_F(FirewallNoticesTest, ABoxForIgnoredExceptionsAppears) {
  MakeOld(TheWorld());
  Installer().refusesRecords = true;
  Installer().Set("ProductName", "V");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheWorld().desktop.boxes, (Boxes{{kIgnored, "V", 0x30}}));
}

TEST_F(FirewallNoticesTest, ABoxHasTheFixedTitleForMostNames) {
  Installer().refusesRecords = true;
  for (const char* name : {"Vantor", "Va", ""}) {
    TheWorld().desktop.boxes.clear();
    Installer().Set("ProductName", name);
    EXPECT_EQ(Run(5), 0u);
    EXPECT_EQ(TheWorld().desktop.boxes, (Boxes{{kNotCustomized, kFixedTitle, 0x30}})) << name;
  }
  Installer().FailReading("ProductName");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_EQ(TheWorld().desktop.boxes.back().title, kFixedTitle);
}

TEST_F(FirewallNoticesTest, ABoxIsGatedAsNoticesAre) {
  Installer().refusesRecords = true;
  EXPECT_EQ(NoticesWith("0"), Lines{});
  Installer().FailReading("PROP_SILENCE");
  EXPECT_EQ(Run(5), 0u);
  EXPECT_TRUE(TheWorld().desktop.boxes.empty());
}

TEST_F(FirewallNoticesTest, ABoxIsTheLastResort) {
  Installer().refusesRecords = true;
  TheFirewall().FailMethod("policy.get_Rules", E_ACCESSDENIED);
  EXPECT_EQ(Run(5), 0u);
  Calls calls;
  calls.Read().Start().OpenRules().Add("MsiCreateRecord(2) = 0").Add("policy.get_Rules(*) = 0x80070005");
  calls.Add("MsiCreateRecord(2) = 0").AskPolicy().ReadSilence().Add("MsiCreateRecord(2) = 0");
  calls.Add("MsiGetPropertyA(session, \"ProductName\", *, *) = 0");
  calls.Add("MessageBoxA(null, " + rig::Quote(std::string_view(kNotCustomized)) + ", \"" + kFixedTitle +
            "\", 0x30) = 1");
  EXPECT_TRACE((calls.End().lines));
}

TEST_F(FirewallNoticesTest, SurviveEveryFailure) {
  FailEachCall(5, [](rig::World& world) { world.installer.refusesRecords = true; });
  FailEachCall(5, [](rig::World& world) {
    world.installer.refusesRecords = true;
    MakeOld(world);
  });
}

}  // namespace firewall_notices_test
