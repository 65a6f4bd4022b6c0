// What the tests of the firewall exceptions share: their world, and the calls that they expect. Used by
// tests/actions/security/firewall_*_test.cpp.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "rig/action_test.h"
#include "rig/print.h"

namespace firewall_test {

/// The path of a program that has rules.
inline constexpr char kProgram[] = "C:\\Vantor\\vt.exe";

/// Returns the reference to a text of the program's string table, as rules contain it.
inline std::string TextOf(const std::string& path, int number) {
  return "@" + path + ",-" + std::to_string(number);
}

/// Returns a rule as the library makes it; `base` is 1000 for TCP, 1010 for UDP.
inline rig::FirewallRule RuleFor(const std::string& path, int base) {
  return {.name = TextOf(path, base),
          .program = path,
          .enabled = true,
          .grouping = TextOf(path, base + 1),
          .description = TextOf(path, base + 2),
          .protocol = base == 1000 ? 6 : 17,
          .direction = 1,
          .action = 1,
          .profiles = 0x7FFFFFFF};
}

/// Returns an authorised application as the library makes it.
inline rig::AuthorizedApplication ApplicationFor(const std::string& name, const std::string& path) {
  return {.name = name, .program = path, .enabled = true, .scope = 0};
}

/// The calls that a test expects, in order.
class Calls {
 public:
  /// The lines so far.
  std::vector<std::string> lines;

  /// Adds a line.
  Calls& Add(const std::string& line) {
    lines.push_back(line);
    return *this;
  }
  /// Reads the list.
  Calls& Read(const std::string& result = "0") {
    return Add("MsiGetPropertyW(session, \"PROP_FIREWALLDATA\", *, *) = " + result);
  }
  /// Starts COM.
  Calls& Start(const std::string& result = "0") {
    Add("GetModuleHandleA(\"OLE32\") = OLE32").Add("GetProcAddress(OLE32, \"CoInitializeEx\") = *");
    return Add("CoInitializeEx(null, 0x6) = " + result);
  }
  /// Uninitializes COM.
  Calls& End() { return Add("CoUninitialize()"); }
  /// Creates an object.
  Calls& Create(const std::string& classId, const std::string& interfaceId, const std::string& result) {
    return Add("CoCreateInstance({" + classId + "}, null, 0x1, {" + interfaceId + "}, *) = " + result);
  }
  /// Creates the policy of the rules.
  Calls& OpenRules(const std::string& result = "0") {
    return Create("E2B3C97F-6AE1-41AC-817A-F6F92166D7DD", "98325047-C671-4174-8D81-DEFCD3F03186", result);
  }
  /// Creates the manager.
  Calls& OpenManager(const std::string& result = "0") {
    return Create("304CE942-6E39-40D8-943A-B913C40C9CD4", "F7898AF5-CAC4-4632-A2EC-DA06E5111AF2", result);
  }
  /// Opens the current profile.
  Calls& OpenProfile() {
    return OpenManager().Add("manager.get_LocalPolicy(*) = 0").Add("localpolicy.get_CurrentProfile(*) = 0");
  }
  /// Writes a line to the log.
  Calls& Log(const std::string& text) {
    std::string record = "record#" + std::to_string(++records_);
    Add("MsiCreateRecord(2) = " + record);
    Add("MsiRecordSetStringA(" + record + ", 0, \"Hx Setup Log: [1]\") = 0");
    Add("MsiRecordSetStringA(" + record + ", 1, " + rig::Quote(std::string_view(text)) + ") = 0");
    Add("MsiProcessMessage(session, 0x4000000, " + record + ") = 1");
    return Add("MsiCloseHandle(" + record + ") = 0");
  }
  /// Makes a text of the program.
  Calls& Text(const std::string& path, int number) {
    return Add("wsprintfW(*, \"@%s,-%d\", " + Quoted(path) + ", " + std::to_string(number) +
               ") = " + std::to_string(rig::ToWide(TextOf(path, number)).size()));
  }
  /// Looks up a rule.
  Calls& FindRule(const std::string& path, int base, const std::string& result = "0x80070002") {
    Add("policy.get_Rules(*) = 0").Text(path, base);
    return Add("rules.Item(" + Quoted(TextOf(path, base)) + ", *) = " + result);
  }
  /// Sets the program and the texts of the rule `object`.
  Calls& Describe(const std::string& object, const std::string& path, int base) {
    Add(object + ".put_ApplicationName(" + Quoted(path) + ") = 0");
    const char* const methods[] = {"put_Name", "put_Grouping", "put_Description"};
    for (int offset = 0; offset < 3; ++offset) {
      Text(path, base + offset);
      Add(object + "." + methods[offset] + "(" + Quoted(TextOf(path, base + offset)) + ") = 0");
    }
    return *this;
  }
  /// Creates a rule object.
  Calls& MakeRule(const std::string& result = "0") {
    Add("policy.get_Rules(*) = 0");
    return Create("2C5BC43E-3369-4C33-AB0C-BE9469677AF4", "AF230D27-BABA-4E42-ACED-F524F22CFCE2", result);
  }
  /// Creates a rule and adds it.
  Calls& AddRule(const std::string& path, int base, const std::string& result = "0") {
    MakeRule().Describe("rule", path, base);
    Add("rule.put_Direction(1) = 0").Add("rule.put_Action(1) = 0");
    Add(base == 1000 ? "rule.put_Protocol(6) = 0" : "rule.put_Protocol(17) = 0");
    Add("rule.put_Profiles(2147483647) = 0").Add("rule.put_Enabled(-1) = 0");
    return Add("rules.Add(rule) = " + result);
  }
  /// Looks up an application.
  Calls& FindApplication(const std::string& path, const std::string& result = "0x80070002") {
    Add("profile.get_AuthorizedApplications(*) = 0");
    return Add("applications.Item(" + Quoted(path) + ", *) = " + result);
  }
  /// Creates an application object.
  Calls& MakeApplication(const std::string& result = "0") {
    Add("profile.get_AuthorizedApplications(*) = 0");
    return Create("EC9846B3-2762-4A6B-A214-6ACB603462D2", "B5E64FFA-C2C5-444E-A301-FB5E00018050", result);
  }
  /// Creates an application and adds it.
  Calls& AddApplication(const std::string& name, const std::string& path, const std::string& result = "0") {
    MakeApplication().Add("application.put_ProcessImageFileName(" + Quoted(path) + ") = 0");
    Add("application.put_Name(" + Quoted(name) + ") = 0").Add("application.put_Scope(0) = 0");
    return Add("applications.Add(application) = " + result);
  }
  /// Asks whether the firewall of the rules is on.
  Calls& AskPolicy(const std::string& result = "0") {
    return Add("policy.get_FirewallEnabled(0x7fffffff, *) = " + result);
  }
  /// Asks whether the firewall of the profile is on.
  Calls& AskProfile(const std::string& result = "0") {
    return Add("profile.get_FirewallEnabled(*) = " + result);
  }
  /// Asks whether the profile ignores its exceptions.
  Calls& AskExceptions(const std::string& result = "0") {
    return Add("profile.get_ExceptionsNotAllowed(*) = " + result);
  }
  /// Reads PROP_SILENCE.
  Calls& ReadSilence(const std::string& result = "0") {
    return Add("MsiGetPropertyA(session, \"PROP_SILENCE\", *, *) = " + result);
  }
  /// Sends the notice of this number.
  Calls& Notify(int number) {
    std::string record = "record#" + std::to_string(++records_);
    ReadSilence().Add("MsiCreateRecord(2) = " + record);
    Add("MsiRecordSetInteger(" + record + ", 1, " + std::to_string(number) + ") = 0");
    Add("MsiProcessMessage(session, 0x2000030, " + record + ") = 1");
    return Add("MsiCloseHandle(" + record + ") = 0");
  }
  /// Removes a rule.
  Calls& RemoveRule(const std::string& path, int base, const std::string& result = "0") {
    Add("policy.get_Rules(*) = 0").Text(path, base);
    return Add("rules.Remove(" + Quoted(TextOf(path, base)) + ") = " + result);
  }
  /// Removes an application.
  Calls& RemoveApplication(const std::string& path, const std::string& result = "0") {
    Add("profile.get_AuthorizedApplications(*) = 0");
    return Add("applications.Remove(" + Quoted(path) + ") = " + result);
  }

 private:
  /// Returns a text as the trace shows it.
  static std::string Quoted(const std::string& text) { return rig::Quote(std::string_view(text)); }

  int records_ = 0;
};

/// A test of the actions for the firewall exceptions. The system is a newer one, COM can be started, and
/// notices are wanted.
class FirewallTest : public rig::ActionTest {
 protected:
  void Arrange(rig::World& world) override {
    world.modules.Loaded("OLE32");
    world.installer.Set("PROP_SILENCE", "-1");
    world.installer.Set("PROP_FIREWALLDATA", "Vantor/C:\\Vantor\\vt.exe");
    // COM is uninitialized after the last object is released.
    world.On<::CoUninitialize>([&world] {
      EXPECT_EQ(world.rig.ledger.Count(rig::kInterface), 0u);
      world.rig.ledger.Give(rig::kComStart, 1, "CoUninitialize");
    });
  }

  /// Returns the firewall of this test, or of this run of a sweep.
  rig::Firewall& TheFirewall() { return TheWorld().firewall; }
  /// Sets the list of exceptions.
  void SetList(const std::string& list) { Installer().Set("PROP_FIREWALLDATA", list); }
  /// Makes the system an older one, without rules.
  static void MakeOld(rig::World& world) {
    world.clock.versionInfo.dwMajorVersion = 5;
    world.clock.versionInfo.dwMinorVersion = 1;
  }
  /// Returns the notices that were sent, by number.
  std::vector<std::string> Notices() {
    std::vector<std::string> notices;
    for (const rig::Message& message : Installer().Messages()) {
      if (message.type == 0x02000030) {
        notices.push_back(message.fields.at(1));
      }
    }
    return notices;
  }
};

}  // namespace firewall_test
