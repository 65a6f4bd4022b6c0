#include "actions/security/service_account_course.h"

#include <cstdio>

#include "rig/function.h"

namespace service_account_test {

using expected::Quoted;

namespace {

constexpr DWORD kNone = 0xFFFFFFFF;

std::string Both(DWORD code) {
  char text[32];
  std::snprintf(text, sizeof text, "%ld (0x%08lX)", static_cast<long>(code),
                static_cast<unsigned long>(code));
  return text;
}

bool IsSame(const std::string& a, const std::string& b) {
  rig::IgnoreCase isLess;
  return !isLess(a, b) && !isLess(b, a);
}

}  // namespace

bool Course::Do(const std::string& call, const std::string& good) {
  auto failing = now_.failing.find(call.substr(0, call.find('(')));
  const std::string& result = failing == now_.failing.end() ? good : failing->second;
  calls_.Add(call + " = " + result);
  code_ = static_cast<DWORD>(std::strtoul(result.c_str(), nullptr, 0));
  return result == good;
}

bool Course::DoLate(const std::string& module, const std::string& call, const std::string& good) {
  const std::string function = call.substr(0, call.find('('));
  code_ = kNone;
  if (now_.missing.count(module) != 0) {
    calls_.LackModule(module);
    return false;
  }
  if (now_.missing.count(function) != 0) {
    calls_.LackFunction(module, function);
    return false;
  }
  calls_.Bind(module, function);
  return Do(call, good);
}

bool Course::Read(const std::string& name) {
  bool isUnreadable = now_.failing.count(name) != 0;
  calls_.Read(name, isUnreadable ? now_.failing.at(name) : "0");
  return !isUnreadable;
}

void Course::Free() {
  DoLate("NETAPI32", "NetApiBufferFree(net-buffer#" + std::to_string(++buffers_) + ")");
}

std::vector<std::string> Course::NoAccount() {
  return calls_.NoAccount().lines;
}

std::vector<std::string> Course::Failure() {
  if (now_.reports) {
    calls_.Notice(27000);
  } else {
    calls_.Add("MsiGetPropertyA(session, \"PROP_SILENCE\", *, *) = 0");
  }
  return NoAccount();
}

DWORD Course::Open(const std::string& domain) {
  bool isOpened = DoLate("ACTIVEDS", "ADsGetObject(" + Quoted("WinNT://" + domain) +
                                         ", {001677D0-FD16-11CE-ABC4-02608C9E7553}, *)");
  return isOpened ? 0 : Code();
}

DWORD Course::Create(bool isOfDomain, const std::string& domain, const std::string& fullName) {
  if (!isOfDomain) {
    return DoLate("NETAPI32", "NetUserAdd(null, 2, *, null)") ? 0 : Code();
  }
  if (DWORD code = Open(domain)) {
    return code;
  }
  if (now_.lastError) {
    return *now_.lastError;
  }
  if (!Do("container.Create(\"user\", " + Quoted(now_.name) + ", *)") ||
      !Do("object.QueryInterface({3E37E320-17E2-11CF-ABC4-02608C9E7553}, *)")) {
    return Code();
  }
  Do("user.SetPassword(\"<password>\")");
  Do("user.put_FullName(" + Quoted(fullName) + ")");
  return Do("user.SetInfo()") ? 0 : Code();
}

bool Course::Grant(bool isOfDomain, const std::string& domain) {
  if (isOfDomain && !DoLate("NETAPI32", "NetGetDCName(null, " + Quoted(domain) + ", *)")) {
    return false;
  }
  const std::string lookUp = "LookupAccountNameW(" + (isOfDomain ? Quoted(now_.controller) : "null") + ", " +
                             Quoted(now_.name) + ", *, *, *, *, *)";
  for (size_t count = 1; count < now_.lookUps; ++count) {
    calls_.Late("ADVAPI32", lookUp + " = 0");
  }
  bool isFound = DoLate("ADVAPI32", lookUp, "1");
  if (isOfDomain) {
    Free();
  }
  if (!isFound) {
    return false;
  }
  DWORD status = 0;
  if (Do("LsaOpenPolicy(null, *, 0xf0fff, *)")) {
    Do("LsaAddAccountRights(policy#1, *, *, 1)");
    status = Code();
    calls_.Add("LsaClose(policy#1) = 0");
  } else {
    status = Code();
  }
  const std::map<DWORD, std::string> kErrors = {{0, "0"}, {0xC0000022, "5"}, {0xC0000060, "1313"}};
  const std::string error = kErrors.count(status) != 0 ? kErrors.at(status) : "317";
  calls_.Add("LsaNtStatusToWinError(" + rig::HexText(status) + ") = " + error);
  return error == "0";
}

bool Course::Translate(const std::string& domain, const std::string& user) {
  return Do("CoCreateInstance({274FAE1F-3626-11D1-A3A4-00C04FB950DC}, null, 0x1, "
            "{B1B272A3-3625-11D1-A3A4-00C04FB950DC}, *)") &&
         Do("translator.Init(3, null)") && Do("translator.Set(3, " + Quoted(domain + "\\" + user) + ")") &&
         Do("translator.Get(1, *)");
}

DWORD Course::Update(const std::string& distinguishedName, int operation) {
  std::string serviceClass = Read("PROP_SERVICENAME") ? now_.serviceClass : "";
  if (serviceClass.empty()) {
    serviceClass = "VANTOR";
  }
  if (!DoLate("NTDSAPI", "DsGetSpnW(0, " + Quoted(serviceClass) + ", null, 0, 0, null, null, *, *)")) {
    return kNone;
  }
  DWORD result = kNone;
  if (now_.hasPrincipalNames && DoLate("NTDSAPI", "DsBindW(null, null, *)")) {
    DoLate("NTDSAPI", "DsWriteAccountSpnW(directory#1, " + std::to_string(operation) + ", " +
                          Quoted(distinguishedName) + ", 2, principal-names#1)");
    result = Code();
    DoLate("NTDSAPI", "DsUnBindW(*)");
  }
  if (now_.missing.count("DsFreeSpnArrayW") != 0) {
    calls_.LackFunction("NTDSAPI", "DsFreeSpnArrayW");
  } else {
    calls_.Late("NTDSAPI", std::string("DsFreeSpnArrayW(") + (now_.hasPrincipalNames ? "2" : "0") +
                               ", principal-names#1)");
  }
  return result;
}

std::vector<std::string> Course::Creation() {
  calls_.Add("MsiGetMode(session, 17) = 0");
  if (!Read("PROP_ACCOUNTTYPE") || (now_.type[0] != '0' && now_.type[0] != '1')) {
    return NoAccount();
  }
  if (!Read("PROP_ACCOUNTID")) {
    return Failure();
  }
  if (!Do("CoCreateGuid(*)")) {
    calls_.Log("failure " + Both(Code()) + " adding account");
    return Failure();
  }
  std::string domain;
  if (now_.type[0] == '0' && DoLate("NETAPI32", "NetWkstaGetInfo(null, 100, *)")) {
    domain = now_.workgroup == "\1" ? "" : now_.workgroup.substr(0, 63);
    Free();
  }
  bool isOfDomain = !domain.empty();
  calls_.Log(isOfDomain ? "creating domain service account " + domain + "\\" + now_.name
                        : "creating local service account " + now_.name);
  std::string fullName = Read("PROP_ACCOUNTDESC") ? now_.description : now_.name;
  if (DWORD code = Create(isOfDomain, domain, fullName)) {
    calls_.Log("failure " + Both(code) + " adding account");
    return Failure();
  }
  calls_.Set("PROP_ACCOUNTNAME", now_.name).Set("PROP_ACCOUNTPASS", "<password>");
  if (!Grant(isOfDomain, domain)) {
    calls_.Log("could not grant right to logon as service");
  }
  if (!isOfDomain) {
    bool isNamed = Do("GetComputerNameW(*, *)", "1");
    return calls_.Set("PROP_ACCOUNTDOMAIN", isNamed ? now_.computer : ".").lines;
  }
  calls_.Set("PROP_ACCOUNTDOMAIN", domain).Log("adding service principal name");
  if (!Translate(domain, now_.name)) {
    return calls_.Log("distinguished name not found").lines;
  }
  const std::string distinguishedName = "CN=" + now_.name + ",CN=Users,DC=" + domain;
  DWORD code = Update(distinguishedName, 0);
  return calls_
      .Log((code == 0 ? "added" : "failure " + Both(code) + " adding") +
           std::string(" service principal name for ") + distinguishedName)
      .lines;
}

void Course::AskService() {
  if (!Do("OpenSCManagerA(null, null, 0x4)", "service#1")) {
    return;
  }
  bool isThere = now_.service.has_value() && now_.failing.count("OpenServiceW") == 0;
  calls_.Add(std::string("OpenServiceW(service#1, \"Vantor\", 0x1) = ") + (isThere ? "service#2" : "null"));
  if (isThere) {
    calls_.Add("QueryServiceConfigW(service#2, null, 0, *) = 0");
    if (now_.failing.count("QueryServiceConfigW") == 0) {
      std::optional<std::string> account = now_.service == "\1" ? std::nullopt : now_.service;
      calls_.Add("QueryServiceConfigW(service#2, *, " + std::to_string(ConfigurationSize(account)) +
                 ", *) = " + (now_.isUnanswered ? "0" : "1"));
    }
    calls_.Add("CloseServiceHandle(service#2) = 1");
  }
  calls_.Add("CloseServiceHandle(service#1) = 1");
}

void Course::DeleteOfDomain(const std::string& domain, const std::string& user) {
  if (Open(domain) != 0 || !Do("container.GetObjectA(\"user\", " + Quoted(user) + ", *)")) {
    return;
  }
  if (Translate(domain, user)) {
    // The directory knows its domain by one spelling only.
    Update("CN=" + user + ",CN=Users,DC=" + (IsSame(domain, now_.workgroup) ? now_.workgroup : domain), 2);
  }
  Open(domain);
  Do("container.Delete(\"user\", " + Quoted(user) + ")");
}

std::vector<std::string> Course::Deletion() {
  if (now_.isRollback) {
    calls_.Add("MsiGetMode(session, 17) = 1");
  }
  AskService();
  bool isTold = now_.service && !now_.isUnanswered && now_.failing.count("OpenSCManagerA") == 0 &&
                now_.failing.count("OpenServiceW") == 0 && now_.failing.count("QueryServiceConfigW") == 0;
  std::string account =
      isTold && *now_.service != "\1" && !IsSame(*now_.service, "LocalSystem") ? *now_.service : "";
  if (account.empty()) {
    if (!Read("PROP_ACCOUNTNAME") || now_.publishedName.empty()) {
      return calls_.lines;
    }
    bool hasDomain = Read("PROP_ACCOUNTDOMAIN") && !now_.publishedDomain.empty();
    account = (hasDomain ? now_.publishedDomain + "\\" : "") + now_.publishedName;
  }
  size_t backslash = account.find('\\');
  std::string domain = backslash == std::string::npos ? "" : account.substr(0, backslash);
  std::string user = backslash == std::string::npos ? account : account.substr(backslash + 1);
  bool isRead = Read("PROP_ACCOUNTID");
  if (user.empty()) {
    return calls_.Log("no account to delete").lines;
  }
  if (!isRead || !IsSame(user, now_.name)) {
    return calls_.Log("account was not created by installer (" + user + ")").lines;
  }
  bool isRemote = !domain.empty() && domain != ".";
  if (isRemote && Do("GetComputerNameW(*, *)", "1")) {
    isRemote = !IsSame(domain, now_.computer);
  }
  if (isRemote) {
    calls_.Log("deleting domain service account " + domain + "\\" + user);
    DeleteOfDomain(domain, user);
    return calls_.lines;
  }
  calls_.Log("deleting local service account " + user);
  if (DoLate("NETAPI32", "NetUserGetInfo(null, " + Quoted(user) + ", 1, *)")) {
    Free();
    DoLate("NETAPI32", "NetUserDel(null, " + Quoted(user) + ")");
  }
  return calls_.lines;
}

// ---- the tests

void CourseTest::Fail(Circumstances& now, const std::string& call, DWORD code) {
  if (call.rfind("PROP_", 0) == 0) {
    Installer().FailReading(call, code);
    now.failing[call] = std::to_string(code);
  } else if (call == "object.QueryInterface") {
    Directory().HideUsers();
    now.failing[call] = "0x80004002";
  } else if (call == "CoCreateInstance") {
    TheWorld().On<::CoCreateInstance>([code](const CLSID&, IUnknown*, DWORD, const IID&, void** out) {
      // The pointer that a failing call writes is not an object.
      *out = reinterpret_cast<void*>(uintptr_t{0xBADBAD0});
      return static_cast<HRESULT>(code);
    });
    now.failing[call] = rig::HexText(code);
  } else {
    RefuseCall(call, code);
    Directory().Refuse(call == "container.GetObjectA" ? "container.GetObject" : call, code);
    const bool isHandle = call == "OpenSCManagerA" || call == "OpenServiceW";
    const bool isFlag =
        call == "GetComputerNameW" || call == "LookupAccountNameW" || call == "QueryServiceConfigW";
    now.failing[call] = isHandle                     ? "null"
                        : isFlag                     ? "0"
                        : static_cast<int>(code) < 0 ? rig::HexText(code)
                                                     : std::to_string(code);
  }
}

void CourseTest::Prepare(const Circumstances& now) {
  rig::InstallerSession& installer = Installer();
  installer.rollback = now.isRollback;
  installer.Set("PROP_ACCOUNTTYPE", now.type);
  installer.Set("PROP_ACCOUNTID", now.name);
  installer.Set("PROP_ACCOUNTDESC", now.description);
  installer.Set("PROP_SERVICENAME", now.serviceClass);
  installer.Set("PROP_SILENCE", now.reports ? "-1" : "");
  installer.Set("PROP_ACCOUNTNAME", now.publishedName);
  installer.Set("PROP_ACCOUNTDOMAIN", now.publishedDomain);
  Accounts().workgroup = now.workgroup;
  Accounts().computer = now.computer;
  if (now.service.has_value()) {
    SetService(now.service == "\1" ? std::nullopt : now.service);
  } else {
    TheWorld().services.Remove("Vantor");
  }
  Accounts().demands.clear();
  for (size_t count = 1; count < now.lookUps; ++count) {
    Accounts().demands.emplace_back(static_cast<DWORD>(300 + count), DWORD{300});
  }
  Directory().hasPrincipalNames = now.hasPrincipalNames;
  for (const char* module : kModules) {
    if (now.missing.count(module) != 0) {
      TheModules().Missing(module);
    }
  }
  for (const char* function : kFunctions) {
    if (now.missing.count(function) != 0) {
      std::string name = function;
      TheModules().MissingFunction(name.rfind("Net", 0) == 0  ? "NETAPI32"
                                   : name.rfind("Ds", 0) == 0 ? "NTDSAPI"
                                   : name.rfind("AD", 0) == 0 ? "ACTIVEDS"
                                                              : "ADVAPI32",
                                   name);
    }
  }
}

void CourseTest::ExpectCreation(const Circumstances& now) {
  Prepare(now);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_TRACE((Course(now).Creation()));
  NameLost(TheRig());
  NewScene();
}

void CourseTest::ExpectDeletion(const Circumstances& now) {
  Prepare(now);
  Accounts().users["svc"];
  DomainUsers()["svc"];
  EXPECT_EQ(Run(now.isRollback ? 23 : 24), 0u);
  EXPECT_TRACE((Course(now).Deletion()));
  NameLost(TheRig());
  NewScene();
}

}  // namespace service_account_test
