// The domain's directory in memory: containers and users, distinguished names, and the names of services that
// are registered on users. Part of a world.
#pragma once

#include <windows.h>
// After windows.h, on which they build, the second on the first.
#include <oleauto.h>

#include <iads.h>

#include <map>
#include <set>
#include <string>

#include "rig/com.h"
#include "rig/world/accounts.h"

namespace rig {

/// The directory of the domains and users of `Accounts`. The objects are fakes; their calls are in the trace:
/// "container", "object" (with the interface "user") and "translator". Texts must be plain ones, not system
/// strings. If the headers call a method GetObjectA, so does the trace.
class Directory {
 public:
  /// The part of the world that belongs to this rig.
  Directory(Rig& rig, Com& com, Accounts& accounts) : rig_(rig), com_(com), accounts_(accounts) {}
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  /// Makes the objects and sends its functions here.
  void Install();

  /// Makes the method ("container.Create") or function ("DsBindW") fail with this code. A failing method
  /// leaves rubbish in its output.
  void Refuse(const std::string& call, DWORD code) { refused_[call] = code; }
  /// Objects of new users do not have the interface of users.
  void HideUsers() { hidesUsers_ = true; }

  /// Distinguished names of users ("CORP\svc"); any other user's is "CN=svc,CN=Users,DC=CORP".
  std::map<std::string, std::string> distinguishedNames;
  /// This computer has names to register.
  bool hasPrincipalNames = true;
  /// What is registered, "CN=svc,CN=Users,DC=CORP HOST/PC7".
  std::set<std::string> registered;

 private:
  /// The code that the call fails with, or 0.
  DWORD RefusalOf(const std::string& call) const;
  /// Gives `fake` the method `Member`, unless a test makes it fail.
  template <auto Member, class Interface, class Answer>
  Declaration& Add(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Fails the test if a text is a system string.
  void CheckPlain(const wchar_t* text) const;
  /// Makes the container.
  void InstallContainer();
  /// Makes the user.
  void InstallUser();
  /// Makes the translator.
  void InstallTranslator();
  /// Makes the functions of principal names.
  void InstallPrincipalNames();
  /// Answers ADsGetObject.
  HRESULT Open(const std::string& path, const IID& iid, void** out);
  /// The domain whose container was opened last.
  AccountMap& Users() { return accounts_.domains.at(domain_).accounts; }
  /// Answers IADsNameTranslate::Set.
  HRESULT Translate(const std::string& name);
  /// Answers DsGetSpnW.
  DWORD MakeNames(const std::string& serviceClass, DWORD* count, wchar_t*** names) const;
  /// Answers DsWriteAccountSpnW.
  DWORD WriteNames(int operation, const std::string& account, DWORD count, const wchar_t** names);

  Rig& rig_;
  Com& com_;
  Accounts& accounts_;
  std::map<std::string, DWORD> refused_;
  bool hidesUsers_ = false;
  std::string domain_;
  std::string newName_;
  Account newUser_;
  bool isInitialised_ = false;
  std::string translated_;
  FakeObject<IADsContainer>* container_ = nullptr;
  FakeObject<IDispatch>* object_ = nullptr;
  FakeObject<IADsUser>* user_ = nullptr;
};

}  // namespace rig
