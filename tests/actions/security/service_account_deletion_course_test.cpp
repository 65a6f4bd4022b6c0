// CustomAction24, and CustomAction23 in a rollback: every branch, with all its calls.

#include "actions/security/service_account_course.h"
#include "rig/function.h"

namespace service_account_deletion_course_test {

using service_account_test::Circumstances;
using service_account_test::Failing;
using service_account_test::kFunctions;
using service_account_test::kModules;

class ServiceAccountDeletionCourseTest : public service_account_test::CourseTest {};

TEST_F(ServiceAccountDeletionCourseTest, EverySpellingOfTheServicesAccount) {
  for (bool isRollback : {false, true}) {
    for (const char* account :
         {"svc",         ".\\svc",      "\\svc",       "PC7\\svc", "pc7\\SVC",
          "CORP\\svc",   "corp\\svc",   "svc@corp",    "..\\svc",  "PC\\svc",
          "LocalSystem", "localsystem", "LOCALSYSTEM", "",         "CORP\\other",
          ".\\",         "\\",          "CORP\\\\svc", "\1",       "NT AUTHORITY\\LocalService"}) {
      SCOPED_TRACE(account);
      Circumstances now;
      now.isRollback = isRollback;
      now.service = account;
      std::string name = account;
      if (name == "..\\svc" || name == "PC\\svc") now.failing["ADsGetObject"] = "0x8007054b";
      ExpectDeletion(now);
    }
  }
}

TEST_F(ServiceAccountDeletionCourseTest, EverySpellingOfThePublishedAccount) {
  for (const char* domain : {"", ".", "PC7", "pC7", "CORP", "unreadable", "ELSEWHERE"}) {
    SCOPED_TRACE(domain);
    for (const char* name : {"svc", "SVC", "other", "", "unreadable", "a\\svc"}) {
      Circumstances now;
      now.publishedName = name;
      now.publishedDomain = domain;
      if (now.publishedName == "unreadable") Fail(now, "PROP_ACCOUNTNAME", ERROR_FUNCTION_FAILED);
      if (now.publishedDomain == "unreadable") Fail(now, "PROP_ACCOUNTDOMAIN", ERROR_FUNCTION_FAILED);
      if (now.publishedDomain == "ELSEWHERE" || now.publishedName == "a\\svc") {
        now.failing["ADsGetObject"] = "0x8007054b";
      }
      ExpectDeletion(now);
    }
  }
}

TEST_F(ServiceAccountDeletionCourseTest, AnAccountOfAnotherNameIsLeftAlone) {
  for (const char* own : {"", "svc2", "sv", "unreadable", "svc "}) {
    SCOPED_TRACE(own);
    for (const char* service : {"CORP\\svc", ".\\svc", "svc", "CORP\\"}) {
      Circumstances now;
      now.name = own;
      now.service = service;
      if (now.name == "unreadable") Fail(now, "PROP_ACCOUNTID", ERROR_FUNCTION_FAILED);
      ExpectDeletion(now);
    }
  }
}

TEST_F(ServiceAccountDeletionCourseTest, EachStepOfADeletionMayFail) {
  const std::vector<Failing> steps = {
      {"OpenSCManagerA", ERROR_ACCESS_DENIED},
      {"OpenServiceW", ERROR_ACCESS_DENIED},
      {"QueryServiceConfigW", ERROR_ACCESS_DENIED},
      {"GetComputerNameW", ERROR_BUFFER_OVERFLOW},
      {"NetUserGetInfo", 2221},
      {"NetUserDel", ERROR_ACCESS_DENIED},
      {"ADsGetObject", 0x8007054B},
      {"container.GetObjectA", 0x800708AD},
      {"CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG)},
      {"translator.Init", 0x80072030},
      {"translator.Set", 0x80072030},
      {"translator.Get", 0x80072030},
      {"PROP_SERVICENAME", ERROR_FUNCTION_FAILED},
      {"DsGetSpnW", 8453},
      {"DsBindW", ERROR_NO_SUCH_DOMAIN},
      {"DsWriteAccountSpnW", ERROR_ACCESS_DENIED},
      {"container.Delete", 0x80070005},
  };
  for (const Failing& one : steps) {
    SCOPED_TRACE(one.call);
    for (const char* service : {".\\svc", "CORP\\svc"}) {
      Circumstances now;
      now.service = service;
      now.serviceClass = "HOST";
      now.publishedName = "svc";
      now.publishedDomain = "PC7";
      Fail(now, one.call, one.code);
      ExpectDeletion(now);
    }
  }
}

// The service returns the size but not the configuration: the published account is used.
TEST_F(ServiceAccountDeletionCourseTest, AServiceThatReturnsOnlyItsSizeHasNoAccount) {
  Circumstances now;
  now.service = "CORP\\svc";
  now.isUnanswered = true;
  now.publishedName = "svc";
  TheWorld().On<::QueryServiceConfigW>([size = service_account_test::ConfigurationSize(now.service)](
                                           SC_HANDLE, QUERY_SERVICE_CONFIGW* block, DWORD, DWORD* needed) {
    *needed = static_cast<DWORD>(size);
    // The data that a failing query writes are not a configuration.
    if (block != nullptr) block->lpServiceStartName = const_cast<wchar_t*>(L"CORP\\svc");
    SetLastError(block == nullptr ? ERROR_INSUFFICIENT_BUFFER : ERROR_ACCESS_DENIED);
    return FALSE;
  });
  ExpectDeletion(now);
}

TEST_F(ServiceAccountDeletionCourseTest, AComputerWithoutNamesRemovesNone) {
  Circumstances now;
  now.service = "CORP\\svc";
  now.hasPrincipalNames = false;
  ExpectDeletion(now);
}

TEST_F(ServiceAccountDeletionCourseTest, WhatIsMissingMakesTheStepOfADeletionFail) {
  std::vector<const char*> all(std::begin(kModules), std::end(kModules));
  all.insert(all.end(), std::begin(kFunctions), std::end(kFunctions));
  for (const char* service : {".\\svc", "CORP\\svc"}) {
    for (const char* missing : all) {
      SCOPED_TRACE(missing);
      Circumstances now;
      now.service = service;
      now.missing = {missing};
      ExpectDeletion(now);
    }
  }
}

// If a function that frees something is missing, nothing else can free it.
TEST_F(ServiceAccountDeletionCourseTest, WhatCannotBeFreedIsLost) {
  struct Loss {
    const char* function;
    const rig::Kind* kind;
    int action;
    size_t count;
  };
  const std::vector<Loss> losses = {
      {"NetApiBufferFree", &rig::kNetBuffer, 23, 2},
      {"NetApiBufferFree", &rig::kNetBuffer, 24, 0},
      {"DsUnBindW", &rig::kDirectory, 23, 1},
      {"DsUnBindW", &rig::kDirectory, 24, 1},
      {"DsFreeSpnArrayW", &rig::kPrincipalNames, 23, 1},
      {"DsFreeSpnArrayW", &rig::kPrincipalNames, 24, 1},
  };
  for (const Loss& loss : losses) {
    SCOPED_TRACE(loss.function);
    Circumstances now;
    now.missing = {loss.function};
    if (loss.action == 24) {
      now.service = "CORP\\svc";
      DomainUsers()["svc"];
    }
    Prepare(now);
    EXPECT_EQ(Run(loss.action), 0u);
    EXPECT_EQ(TheRig().ledger.Count(*loss.kind), loss.count);
    // The work is done anyway.
    EXPECT_EQ(DomainUsers().count("svc"), loss.action == 23 ? 1u : 0u);
    EXPECT_EQ(Directory().registered.size(), loss.action == 23 ? 2u : 0u);
    NameLost(TheRig());
    NewScene();
  }
}

}  // namespace service_account_deletion_course_test
