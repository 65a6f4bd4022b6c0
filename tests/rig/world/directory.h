// The domain's directory in memory: containers and users, distinguished names, and the service names that
// are registered for users. Part of the world.
#pragma once

#include <windows.h>
// Must come after windows.h, and iads.h after oleauto.h.
#include <oleauto.h>

#include <iads.h>

#include <map>
#include <set>
#include <string>

#include "rig/com.h"
#include "rig/world/accounts.h"

namespace rig {

/// The directory of the domains and users of `Accounts`. The objects are fakes, whose calls are in the
/// trace: "container", "object" (with the interface "user") and "translator". Texts must be plain ones, not
/// system strings. The trace shows GetObjectA if the headers rename the method GetObject to that.
class Directory {
 public:
  /// Creates the part of the world that belongs to this rig.
  Directory(Rig& rig, Com& com, Accounts& accounts) : rig_(rig), com_(com), accounts_(accounts) {}
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  /// Creates the objects and routes the functions of this part here.
  void Install();

  /// Makes the method ("container.Create") or function ("DsBindW") fail with this code. A failing method
  /// stores rubbish in its output.
  void Refuse(const std::string& call, DWORD code) { refused_[call] = code; }
  /// Removes the user interface from the objects of new users.
  void HideUsers() { hidesUsers_ = true; }

  /// Distinguished names of users, by user ("CORP\svc"); any other user's is like "CN=svc,CN=Users,DC=CORP".
  std::map<std::string, std::string> distinguishedNames;
  /// True if this computer has names to register.
  bool hasPrincipalNames = true;
  /// The registered names, "CN=svc,CN=Users,DC=CORP HOST/PC7".
  std::set<std::string> registered;

 private:
  /// Returns the code that the call fails with, or 0.
  DWORD RefusalOf(const std::string& call) const;
  /// Gives `fake` the method `Member`, unless a test makes that fail.
  template <auto Member, class Interface, class Answer>
  Declaration& Add(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Fails the test if a text is a system string.
  void CheckPlain(const wchar_t* text) const;
  /// Creates the container.
  void InstallContainer();
  /// Creates the user.
  void InstallUser();
  /// Creates the translator.
  void InstallTranslator();
  /// Answers the functions of service principal names.
  void InstallPrincipalNames();
  /// Answers ADsGetObject.
  HRESULT Open(const std::string& path, const IID& iid, void** out);
  /// Returns the users of the domain whose container was opened last.
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
