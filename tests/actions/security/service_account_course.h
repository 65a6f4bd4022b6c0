// Computes all the calls of CustomAction23 and CustomAction24 for any situation, from a second description of
// the two actions, step by step. Used by tests/actions/security/service_account_*course_test.cpp.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "actions/security/service_account_support.h"

namespace service_account_test {

/// The situation in which the two actions run.
struct Circumstances {
  std::string type = "0";                      ///< PROP_ACCOUNTTYPE.
  std::string name = "svc";                    ///< PROP_ACCOUNTID.
  std::string description = "Vantor service";  ///< PROP_ACCOUNTDESC.
  std::string serviceClass;                    ///< PROP_SERVICENAME.
  std::string workgroup = "CORP";              ///< The computer's domain or workgroup; "\1" for a null name.
  std::string controller = "\\\\DC1";          ///< The domain's controller.
  std::string computer = "PC7";                ///< The computer's name.
  bool reports = false;                        ///< True if PROP_SILENCE asks for the report.
  bool hasPrincipalNames = true;               ///< True if the computer has names to register.
  size_t lookUps = 1;                          ///< The number of look-ups until the buffer is large enough.
  /// The last error if the directory returns neither a container nor a failure.
  std::optional<DWORD> lastError;

  bool isRollback = false;             ///< True if the installer is rolling back.
  std::optional<std::string> service;  ///< The account of the service "Vantor"; none without the service.
  bool isUnanswered = false;           ///< The service returns only the configuration's size.
  std::string publishedName,
      publishedDomain;  ///< PROP_ACCOUNTNAME and PROP_ACCOUNTDOMAIN before the deletion.

  /// The calls that fail, and the result of each as in the trace. The key is the function, the method
  /// ("container.Create") or the property.
  std::map<std::string, std::string> failing;
  /// The modules and functions that are missing.
  std::set<std::string> missing;
};

/// Computes the expected calls.
class Course {
 public:
  /// Starts without calls, for this situation.
  explicit Course(const Circumstances& circumstances) : now_(circumstances) {}

  /// Returns the calls of CustomAction23 outside a rollback.
  std::vector<std::string> Creation();
  /// Returns the calls of CustomAction24, and of CustomAction23 in a rollback.
  std::vector<std::string> Deletion();

 private:
  /// Makes a call, which may be a failing one. Returns true if its result is `good`.
  bool Do(const std::string& call, const std::string& good = "0");
  /// The same for a function that is looked up by name.
  bool DoLate(const std::string& module, const std::string& call, const std::string& good = "0");
  /// Reads a property. Returns true if it can be read.
  bool Read(const std::string& name);
  /// Returns the result of the last call as a code.
  DWORD Code() const { return code_; }
  /// Frees a network buffer.
  void Free();
  /// Logs that there is no account.
  std::vector<std::string> NoAccount();
  /// The same, after the report.
  std::vector<std::string> Failure();
  /// Creates the account. Returns its code.
  DWORD Create(bool isOfDomain, const std::string& domain, const std::string& fullName);
  /// Opens the container of a domain. Returns its code.
  DWORD Open(const std::string& domain);
  /// Grants the right. Returns true on success.
  bool Grant(bool isOfDomain, const std::string& domain);
  /// Translates a name. Returns true on success.
  bool Translate(const std::string& domain, const std::string& user);
  /// Adds (operation 0) or removes (2) the service principal names. Returns the code.
  DWORD Update(const std::string& distinguishedName, int operation);
  /// Asks the service for its account, if the service exists.
  void AskService();
  /// Deletes a user of a domain.
  void DeleteOfDomain(const std::string& domain, const std::string& user);

  const Circumstances& now_;
  Calls calls_;
  DWORD code_ = 0;
  int buffers_ = 0;
};

/// A test that compares all calls of an action with those of the second description.
class CourseTest : public ServiceAccountTest {
 protected:
  /// Makes a call fail in the world and in the situation, with an error, a status or an HRESULT.
  void Fail(Circumstances& now, const std::string& call, DWORD code);
  /// Arranges the world for the situation.
  void Prepare(const Circumstances& now);
  /// Runs the creation, compares its calls, and begins another run.
  void ExpectCreation(const Circumstances& now);
  /// The same with the deletion. The computer and CORP each have an account of the name.
  void ExpectDeletion(const Circumstances& now);
};

/// A call and the code with which it fails.
struct Failing {
  const char* call;
  DWORD code;
};

/// The modules in which the actions look up functions.
inline constexpr const char* kModules[] = {"NETAPI32", "ACTIVEDS", "NTDSAPI", "ADVAPI32"};
/// The functions that they look up.
inline constexpr const char* kFunctions[] = {
    "NetWkstaGetInfo", "NetGetDCName",    "NetApiBufferFree",  "NetUserAdd", "NetUserGetInfo",
    "NetUserDel",      "ADsGetObject",    "DsGetSpnW",         "DsBindW",    "DsWriteAccountSpnW",
    "DsUnBindW",       "DsFreeSpnArrayW", "LookupAccountNameW"};

}  // namespace service_account_test
