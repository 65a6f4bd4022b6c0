#include "actions/security/security_support.h"

#include "rig/kept.h"

namespace security_test {

std::string ListOf(const std::string& path, const std::string& rights, const std::string& account) {
  return path + ": rights=" + rights + " mode=2 inherits=3 multiple=null/0 form=0 type=0 sid=" + account;
}

Calls& Calls::MakePath(const std::string& path) {
  return Add("SetErrorMode(0x8001) = 16384")
      .Add("FindFirstFileW(" + Quoted(path) + ", *) = INVALID_HANDLE_VALUE")
      .Add("SetErrorMode(0x4000) = 32769");
}

Calls& Calls::LookUp(const std::string& computer, const std::string& name, const std::string& result) {
  return Late("ADVAPI32",
              "LookupAccountNameW(" + computer + ", " + Quoted(name) + ", *, *, *, *, *) = " + result);
}

Calls& Calls::SetList(const std::string& path) {
  std::string list = "local-memory#" + std::to_string(++lists_);
  return Late("ADVAPI32", "SetEntriesInAclW(1, *, null, *) = 0")
      .Late("ADVAPI32",
            "SetNamedSecurityInfoW(" + Quoted(path) + ", 1, 4, null, null, " + list + ", null) = 0")
      .Add("LocalFree(" + list + ") = null");
}

Calls& Calls::OpenService(const std::string& name, const std::string& access) {
  return Add("OpenSCManagerA(null, null, 0x80000000) = service#1")
      .Add("OpenServiceW(service#1, " + Quoted(name) + ", " + access + ") = service#2");
}

Calls& Calls::CloseService() {
  return Add("CloseServiceHandle(service#2) = 1").Add("CloseServiceHandle(service#1) = 1");
}

Calls BeginFullControl(const std::string& account, const std::string& given, const std::string& path) {
  Calls calls;
  return calls.Read("CustomActionData").Log("setting ACL for " + account + " on " + given).MakePath(path);
}

Calls BeginFullControl(const std::string& account) {
  return BeginFullControl(account, account);
}

void SecurityTest::Arrange(rig::World& world) {
  world.accounts.users["svc"];
  world.accounts.domains["CORP"].accounts["svc"];
  world.accounts.domains["BRANCH"].accounts["svc"];
  // The path is spelled as given.
  world.On<::FindFirstFileW>([](const wchar_t*, WIN32_FIND_DATAW*) {
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  });
}

void SecurityTest::NameKept(rig::Rig& rig) {
  rig::KeepModules(rig, {"NETAPI32", "ADVAPI32"});
  rig::KeepWithout(rig, "NETAPI32", "NetApiBufferFree", rig::kNetBuffer);
}

void SecurityTest::TearDown() {
  NameKept(TheRig());
  rig::ActionTest::TearDown();
}

void SecurityTest::NewScene() {
  TearDown();
  SetUp();
}

size_t SecurityTest::SweepAction(int number, const std::function<void(rig::World&)>& arrange,
                                 const std::function<void(const rig::SweepRun&)>& check) {
  rig::SweepOptions options;
  options.check = check;
  return FailEachCall(
      [number](rig::Scene& scene) {
        UINT result = scene.library.CustomAction(number, scene.rig.session);
        NameKept(scene.rig);
        return result;
      },
      arrange, options);
}

}  // namespace security_test
