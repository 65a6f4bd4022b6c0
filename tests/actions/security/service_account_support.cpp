#include "actions/security/service_account_support.h"

#include "rig/kept.h"

namespace service_account_test {

using expected::Quoted;

namespace {

constexpr char kContainerId[] = "{001677D0-FD16-11CE-ABC4-02608C9E7553}";

}  // namespace

Calls& Calls::Set(const std::string& name, const std::string& value) {
  return Add("MsiSetPropertyW(session, \"" + name + "\", " + Quoted(value) + ") = 0");
}

Calls& Calls::AskWorkgroup(int buffer) {
  Late("NETAPI32", "NetWkstaGetInfo(null, 100, *) = 0");
  return Late("NETAPI32", "NetApiBufferFree(net-buffer#" + std::to_string(buffer) + ") = 0");
}

Calls& Calls::OpenContainer() {
  return Late("ACTIVEDS", std::string("ADsGetObject(\"WinNT://CORP\", ") + kContainerId + ", *) = 0");
}

Calls& Calls::Translate() {
  Add("CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
      "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *) = 0");
  Add("translator.Init(3, null) = 0");
  Add(R"(translator.Set(3, "CORP\\svc") = 0)");
  return Add("translator.Get(1, *) = 0");
}

Calls& Calls::UpdateNames(const std::string& serviceClass, int operation) {
  Late("NTDSAPI", "DsGetSpnW(0, \"" + serviceClass + "\", null, 0, 0, null, null, *, *) = 0");
  Late("NTDSAPI", "DsBindW(null, null, *) = 0");
  Late("NTDSAPI", "DsWriteAccountSpnW(directory#1, " + std::to_string(operation) +
                      ", \"CN=svc,CN=Users,DC=CORP\", 2, principal-names#1) = 0");
  Late("NTDSAPI", "DsUnBindW(*) = 0");
  return Late("NTDSAPI", "DsFreeSpnArrayW(2, principal-names#1)");
}

Calls& Calls::Grant(const std::string& controller) {
  Late("ADVAPI32", "LookupAccountNameW(" + controller + ", \"svc\", *, *, *, *, *) = 1");
  if (controller != "null") {
    Late("NETAPI32", "NetApiBufferFree(net-buffer#2) = 0");
  }
  return Add("LsaOpenPolicy(null, *, 0xf0fff, *) = 0")
      .Add("LsaAddAccountRights(policy#1, *, *, 1) = 0")
      .Add("LsaClose(policy#1) = 0")
      .Add("LsaNtStatusToWinError(0x0) = 0");
}

Calls& Calls::Notice(int number) {
  std::string record = NewRecord();
  return Add("MsiGetPropertyA(session, \"PROP_SILENCE\", *, *) = 0")
      .Add("MsiCreateRecord(2) = " + record)
      .Add("MsiRecordSetInteger(" + record + ", 1, " + std::to_string(number) + ") = 0")
      .Add("MsiProcessMessage(session, 0x2000030, " + record + ") = 1")
      .Add("MsiCloseHandle(" + record + ") = 0");
}

Calls& Calls::NoAccount() {
  return Log("no service account, using LocalSystem")
      .Set("PROP_ACCOUNTDOMAIN", "")
      .Set("PROP_ACCOUNTNAME", "")
      .Set("PROP_ACCOUNTPASS", "");
}

Calls& Calls::AskService(const std::string& account) {
  return Add("OpenSCManagerA(null, null, 0x4) = service#1")
      .Add("OpenServiceW(service#1, \"Vantor\", 0x1) = service#2")
      .Add("QueryServiceConfigW(service#2, null, 0, *) = 0")
      .Add("QueryServiceConfigW(service#2, *, " + std::to_string(ConfigurationSize(account)) + ", *) = 1")
      .Add("CloseServiceHandle(service#2) = 1")
      .Add("CloseServiceHandle(service#1) = 1");
}

Calls& Calls::LackService() {
  return Add("OpenSCManagerA(null, null, 0x4) = service#1")
      .Add("OpenServiceW(service#1, \"Vantor\", 0x1) = null")
      .Add("CloseServiceHandle(service#1) = 1");
}

size_t ConfigurationSize(const std::optional<std::string>& account) {
  // The command line, the group, the dependencies and the display name are empty.
  size_t characters = 4 + (account.has_value() ? account->size() + 1 : 0);
  return sizeof(QUERY_SERVICE_CONFIGW) + characters * sizeof(wchar_t);
}

void ServiceAccountTest::Arrange(rig::World& world) {
  // The installer's process has started COM already; the actions do not start it.
  world.com.start = RPC_E_CHANGED_MODE;
  world.installer.Set("PROP_ACCOUNTID", "svc");
  world.installer.Set("PROP_ACCOUNTDESC", "Vantor service");
}

void ServiceAccountTest::SetService(const std::optional<std::string>& account) {
  TheWorld().services.Of("Vantor").account = account;
}

void ServiceAccountTest::RefuseCall(const std::string& function, DWORD code) {
  rig::Services& services = TheWorld().services;
  if (function == "OpenSCManagerA") {
    services.managerError = code;
  } else if (function == "OpenServiceW") {
    services.Of("Vantor").openError = code;
  } else if (function == "QueryServiceConfigW") {
    services.Of("Vantor").sizingError = code;
  } else {
    Accounts().Refuse(function, code);
  }
}

void ServiceAccountTest::TearDown() {
  NameKept(TheRig());
  rig::ActionTest::TearDown();
}

void ServiceAccountTest::NewScene() {
  TearDown();
  SetUp();
}

void ServiceAccountTest::NameKept(rig::Rig& rig) {
  rig::KeepModules(rig, {"NETAPI32", "NTDSAPI", "ACTIVEDS", "ADVAPI32"});
}

void ServiceAccountTest::NameLost(rig::Rig& rig) {
  auto has = [&](const std::string& start, const std::string& result) {
    for (const std::string& line : rig.trace.Lines()) {
      if (line.rfind(start, 0) == 0 && line.find(" = " + result) != std::string::npos) {
        return true;
      }
    }
    return false;
  };
  bool lacksUser = has("object.QueryInterface(", "0x8");
  if (lacksUser || has("container.Create(", "0x8")) {
    rig.ledger.Deliberate(rig::kInterface, "container");
  }
  if (lacksUser) {
    rig.ledger.Deliberate(rig::kInterface, "object");
  }
  rig::KeepWithout(rig, "NETAPI32", "NetApiBufferFree", rig::kNetBuffer);
  rig::KeepWithout(rig, "NTDSAPI", "DsUnBindW", rig::kDirectory);
  rig::KeepWithout(rig, "NTDSAPI", "DsFreeSpnArrayW", rig::kPrincipalNames);
}

size_t ServiceAccountTest::SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                                       const std::function<void(const rig::SweepRun&)>& check) {
  rig::SweepOptions options;
  options.check = check;
  return FailEachCall(
      [number](rig::Scene& scene) {
        UINT result = scene.library.CustomAction(number, scene.rig.session);
        NameKept(scene.rig);
        NameLost(scene.rig);
        return result;
      },
      arrange, options);
}

std::string ServiceAccountTest::Published(const rig::World& world) {
  return world.installer.Get("PROP_ACCOUNTNAME") + "|" + world.installer.Get("PROP_ACCOUNTPASS") + "|" +
         world.installer.Get("PROP_ACCOUNTDOMAIN");
}

}  // namespace service_account_test
