// The calls of CustomAction23 and CustomAction24 from the first to the last, for any circumstances: what the
// two must do, told once more in the order of their steps. Used by
// tests/actions/service_account_*course_test.cpp.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "actions/security/service_account_support.h"

namespace service_account_test {

/// What the two actions meet.
struct Circumstances {
  std::string type = "0";                      ///< PROP_ACCOUNTTYPE.
  std::string name = "svc";                    ///< PROP_ACCOUNTID.
  std::string description = "Vantor service";  ///< PROP_ACCOUNTDESC.
  std::string serviceClass;                    ///< PROP_SERVICENAME.
  std::string workgroup = "CORP";              ///< What the computer is in; "\1" for a null name.
  std::string controller = "\\\\DC1";          ///< The controller of that domain.
  std::string computer = "PC7";                ///< The computer's name.
  bool reports = false;                        ///< Whether PROP_SILENCE asks for the report.
  bool hasPrincipalNames = true;               ///< Whether the computer has names to register.
  size_t lookUps = 1;                          ///< How often the account is looked up until there is room.
  /// The last error where the directory gives no container, and no failure either.
  std::optional<DWORD> lastError;

  bool isRollback = false;             ///< Whether the installer rolls back.
  std::optional<std::string> service;  ///< The account of the service "Vantor"; none without the service.
  bool isUnanswered = false;           ///< The service tells the size of its configuration only.
  std::string publishedName,
      publishedDomain;  ///< PROP_ACCOUNTNAME and PROP_ACCOUNTDOMAIN before the deletion.

  /// Calls that fail, by the function, the method ("container.Create") or the property, and the result of
  /// each as the trace has it.
  std::map<std::string, std::string> failing;
  /// Modules and functions that are not there.
  std::set<std::string> missing;
};

/// Writes the calls down.
class Course {
 public:
  /// What follows happens in these circumstances.
  explicit Course(const Circumstances& circumstances) : now_(circumstances) {}

  /// The calls of CustomAction23, which is not in a rollback.
  std::vector<std::string> Creation();
  /// Those of CustomAction24, or of CustomAction23 in a rollback.
  std::vector<std::string> Deletion();

 private:
  /// Makes a call that may be failing; whether it gives `good`.
  bool Do(const std::string& call, const std::string& good = "0");
  /// The same of a function that is found by name.
  bool DoLate(const std::string& module, const std::string& call, const std::string& good = "0");
  /// Reads a property; whether it can be read.
  bool Read(const std::string& name);
  /// What the call gave that was made last, as a code.
  DWORD Code() const { return code_; }
  /// Frees a buffer of the network.
  void Free();
  /// Tells that there is no account.
  std::vector<std::string> NoAccount();
  /// The same behind the report.
  std::vector<std::string> Failure();
  /// Makes the account; its code.
  DWORD Create(bool isOfDomain, const std::string& domain, const std::string& fullName);
  /// Opens the container of a domain; its code.
  DWORD Open(const std::string& domain);
  /// Grants the right; whether that succeeds.
  bool Grant(bool isOfDomain, const std::string& domain);
  /// Translates a name; whether that succeeds.
  bool Translate(const std::string& domain, const std::string& user);
  /// Adds (operation 0) or takes away (2) the names of services; the code.
  DWORD Update(const std::string& distinguishedName, int operation);
  /// Asks the service for its account, if it is there.
  void AskService();
  /// Deletes the user of a domain.
  void DeleteOfDomain(const std::string& domain, const std::string& user);

  const Circumstances& now_;
  Calls calls_;
  DWORD code_ = 0;
  int buffers_ = 0;
};

/// A test that compares whole courses.
class CourseTest : public ServiceAccountTest {
 protected:
  /// Makes a call fail, in the world and in the circumstances: with an error, a status or an HRESULT.
  void Fail(Circumstances& now, const std::string& call, DWORD code);
  /// Arranges the world as the circumstances have it.
  void Prepare(const Circumstances& now);
  /// Runs the creation, expects its course, and begins another run.
  void ExpectCreation(const Circumstances& now);
  /// The same with the deletion, where an account of the name is on the computer and one in CORP.
  void ExpectDeletion(const Circumstances& now);
};

/// A call and what it fails with.
struct Failing {
  const char* call;
  DWORD code;
};

/// The modules in which the actions find functions.
inline constexpr const char* kModules[] = {"NETAPI32", "ACTIVEDS", "NTDSAPI", "ADVAPI32"};
/// The functions.
inline constexpr const char* kFunctions[] = {
    "NetWkstaGetInfo", "NetGetDCName",    "NetApiBufferFree",  "NetUserAdd", "NetUserGetInfo",
    "NetUserDel",      "ADsGetObject",    "DsGetSpnW",         "DsBindW",    "DsWriteAccountSpnW",
    "DsUnBindW",       "DsFreeSpnArrayW", "LookupAccountNameW"};

}  // namespace service_account_test
