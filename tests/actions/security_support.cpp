#include "actions/security_support.h"

#include "rig/print.h"

namespace security_test {

std::string Quoted(const std::string& text) {
  return rig::Quote(std::string_view(text));
}

std::string ListOf(const std::string& path, const std::string& rights, const std::string& account) {
  return path + ": rights=" + rights + " mode=2 inherits=3 multiple=null/0 form=0 type=0 sid=" + account;
}

Calls& Calls::Add(const std::string& line) {
  lines.push_back(line);
  return *this;
}

Calls& Calls::Read(const std::string& name, const std::string& result) {
  return Add("MsiGetPropertyW(session, \"" + name + "\", *, *) = " + result);
}

Calls& Calls::Log(const std::string& text) {
  std::string record = "record#" + std::to_string(++records_);
  return Add("MsiCreateRecord(2) = " + record)
      .Add("MsiRecordSetStringA(" + record + ", 0, \"Hx Setup Log: [1]\") = 0")
      .Add("MsiRecordSetStringA(" + record + ", 1, " + Quoted(text) + ") = 0")
      .Add("MsiProcessMessage(session, 0x4000000, " + record + ") = 1")
      .Add("MsiCloseHandle(" + record + ") = 0");
}

void Calls::BeginBind(const std::string& module) {
  Add("SetErrorMode(0x8001) = 16384");
  if (!modules_.insert(module).second) {
    return;
  }
  if (module == "ADVAPI32") {
    Add("GetModuleHandleW(\"ADVAPI32\") = ADVAPI32");
    return;
  }
  Add("GetModuleHandleW(\"" + module + "\") = null");
  Add("LoadLibraryW(\"" + module + "\") = " + module);
}

Calls& Calls::LackFunction(const std::string& module, const std::string& function) {
  BeginBind(module);
  return Add("GetProcAddress(" + module + ", \"" + function + "\") = null")
      .Add("SetErrorMode(0x4000) = 32769");
}

Calls& Calls::LackModule(const std::string& module) {
  return Add("SetErrorMode(0x8001) = 16384")
      .Add("GetModuleHandleW(\"" + module + "\") = null")
      .Add("LoadLibraryW(\"" + module + "\") = null")
      .Add("SetErrorMode(0x4000) = 32769");
}

Calls& Calls::Late(const std::string& module, const std::string& call) {
  std::string function = call.substr(0, call.find('('));
  if (functions_.insert(function).second) {
    BeginBind(module);
    Add("GetProcAddress(" + module + ", \"" + function + "\") = *").Add("SetErrorMode(0x4000) = 32769");
  }
  return Add(call);
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
  security_ = std::make_unique<rig::Security>(world);
  security_->accounts.users["svc"];
  security_->accounts.domains["CORP"].accounts["svc"];
  security_->accounts.domains["BRANCH"].accounts["svc"];
}

void SecurityTest::TearDown() {
  rig::Security::NameKept(TheRig());
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
        rig::Security::NameKept(scene.rig);
        return result;
      },
      arrange, options);
}

}  // namespace security_test
