// CustomAction23: every branch, with all its calls.

#include <cstring>

#include "actions/security/service_account_course.h"
#include "rig/function.h"
#include "rig/guarded_heap.h"
// Needs the directory's interfaces first.
#include <adshlp.h>

namespace service_account_course_test {

using service_account_test::Circumstances;
using service_account_test::Course;
using service_account_test::Failing;
using service_account_test::kFunctions;
using service_account_test::kModules;

class ServiceAccountCourseTest : public service_account_test::CourseTest {};

TEST_F(ServiceAccountCourseTest, TheTypeDecides) {
  for (const char* type : {"0", "1", "1x", "10", "0 ", "01", "", "2", "/", "9", "-1", " 1", "x"}) {
    SCOPED_TRACE(type);
    Circumstances now;
    now.type = type;
    ExpectCreation(now);
  }
}

TEST_F(ServiceAccountCourseTest, TheWorkgroupDecidesWhereTheAccountIsMade) {
  for (const std::string& workgroup :
       {std::string(), std::string("\1"), std::string("C"), std::string(62, 'D'), std::string(63, 'D'),
        std::string(64, 'D'), std::string(200, 'D'), std::string("\xC3\x9Cml\xC3\xA4ut")}) {
    SCOPED_TRACE(workgroup);
    Circumstances now;
    now.workgroup = workgroup;
    Accounts().domains[workgroup == "\1" ? "" : workgroup.substr(0, 63)].controller = now.controller =
        "\\\\DC2";
    ExpectCreation(now);
  }
  Circumstances now;
  Fail(now, "NetWkstaGetInfo", ERROR_ACCESS_DENIED);
  ExpectCreation(now);
}

TEST_F(ServiceAccountCourseTest, AWorkgroupIsNotADomain) {
  for (bool reports : {false, true}) {
    Circumstances now;
    now.workgroup = "WORKGROUP";
    now.reports = reports;
    now.failing["ADsGetObject"] = "0x8007054b";
    ExpectCreation(now);
  }
}

TEST_F(ServiceAccountCourseTest, TheNameAndTheDescriptionPassWhole) {
  for (const char* type : {"0", "1"}) {
    for (const char* description : {"", "Vantor service", "\xC3\x84 service", "unreadable"}) {
      SCOPED_TRACE(description);
      Circumstances now;
      now.type = type;
      now.name = "\xC3\xA9l\xC3\xA8ve \xE6\x97\xA5";
      now.description = description;
      if (now.description == "unreadable") Fail(now, "PROP_ACCOUNTDESC", ERROR_FUNCTION_FAILED);
      ExpectCreation(now);
    }
  }
}

TEST_F(ServiceAccountCourseTest, EachStepOfALocalAccountMayFail) {
  const std::vector<Failing> steps = {
      {"PROP_ACCOUNTTYPE", ERROR_FUNCTION_FAILED},
      {"PROP_ACCOUNTID", ERROR_FUNCTION_FAILED},
      {"CoCreateGuid", static_cast<DWORD>(E_OUTOFMEMORY)},
      {"PROP_ACCOUNTDESC", ERROR_FUNCTION_FAILED},
      {"NetUserAdd", ERROR_ACCESS_DENIED},
      {"LookupAccountNameW", ERROR_NONE_MAPPED},
      {"LsaOpenPolicy", 0xC0000022},
      {"LsaAddAccountRights", 0xC0000060},
      {"LsaAddAccountRights", 0x00000103},
      {"GetComputerNameW", ERROR_BUFFER_OVERFLOW},
  };
  for (bool reports : {false, true}) {
    for (const Failing& one : steps) {
      SCOPED_TRACE(one.call);
      Circumstances now;
      now.type = "1";
      now.reports = reports;
      Fail(now, one.call, one.code);
      ExpectCreation(now);
    }
  }
}

TEST_F(ServiceAccountCourseTest, EachStepOfAnAccountOfTheDomainMayFail) {
  const std::vector<Failing> steps = {
      {"CoCreateGuid", static_cast<DWORD>(E_OUTOFMEMORY)},
      {"ADsGetObject", 0x80070005},
      {"container.Create", 0x80070005},
      {"object.QueryInterface", 0x80004002},
      {"user.SetPassword", 0x800708C5},
      {"user.put_FullName", 0x80070057},
      {"user.SetInfo", 0x800708B0},
      {"NetGetDCName", 2453},
      {"LookupAccountNameW", ERROR_NONE_MAPPED},
      {"LsaOpenPolicy", 0xC0000022},
      {"LsaAddAccountRights", 0xC0000060},
      {"CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG)},
      {"translator.Init", 0x80072030},
      {"translator.Set", 0x80072030},
      {"translator.Get", 0x80072030},
      {"PROP_SERVICENAME", ERROR_FUNCTION_FAILED},
      {"DsGetSpnW", 8453},
      {"DsBindW", ERROR_NO_SUCH_DOMAIN},
      {"DsWriteAccountSpnW", ERROR_ACCESS_DENIED},
  };
  for (const Failing& one : steps) {
    SCOPED_TRACE(one.call);
    Circumstances now;
    now.serviceClass = "HOST";
    Fail(now, one.call, one.code);
    ExpectCreation(now);
  }
}

// The code is the HRESULT of the step; also one that is barely a failure.
TEST_F(ServiceAccountCourseTest, OnlyNegativeResultsOfTheDirectoryAreFailures) {
  for (const char* step : {"user.SetInfo", "container.Create"}) {
    Circumstances now;
    Fail(now, step, 0x80000000);
    ExpectCreation(now);
  }
  Accounts().users.clear();
  Circumstances now;
  // The world creates no user then, but no later step notices that.
  Fail(now, "user.SetInfo", 1);
  Prepare(now);
  EXPECT_EQ(Run(23), 0u);
  EXPECT_LOG({"Hx Setup Log: creating domain service account CORP\\svc",
              "Hx Setup Log: could not grant right to logon as service",
              "Hx Setup Log: adding service principal name", "Hx Setup Log: distinguished name not found"});
  EXPECT_EQ(Published(), "svc|<password>|CORP");
}

TEST_F(ServiceAccountCourseTest, AUserThatExistsIsAFailure) {
  for (const char* type : {"0", "1"}) {
    Circumstances now;
    now.type = type;
    now.failing["user.SetInfo"] = "0x800708b0";
    now.failing["NetUserAdd"] = "2224";
    Accounts().users["svc"];
    DomainUsers()["svc"];
    ExpectCreation(now);
  }
}

TEST_F(ServiceAccountCourseTest, WithoutAContainerTheLastErrorIsTheCode) {
  for (DWORD error : {DWORD{5}, DWORD{0x80041001}}) {
    Circumstances now;
    now.lastError = error;
    TheWorld().On<::ADsGetObject>([error](const wchar_t*, const IID&, void** out) {
      *out = nullptr;
      SetLastError(error);
      return HRESULT{S_OK};
    });
    ExpectCreation(now);
  }
}

TEST_F(ServiceAccountCourseTest, WithoutAContainerAndWithoutAnErrorTheWorkGoesOn) {
  Circumstances now;
  TheWorld().On<::ADsGetObject>([](const wchar_t*, const IID&, void** out) {
    *out = nullptr;
    SetLastError(ERROR_SUCCESS);
    return HRESULT{S_OK};
  });
  Prepare(now);
  EXPECT_EQ(Run(23), 0u);
  // Nobody created the user, so it is not found. The calls to the directory's objects, which are not made,
  // are removed below.
  now.failing["LookupAccountNameW"] = "0";
  now.failing["translator.Set"] = "0x800708ad";
  std::vector<std::string> lines = Course(now).Creation();
  std::erase_if(lines, [](const std::string& line) {
    return line.rfind("container.", 0) == 0 || line.rfind("object.", 0) == 0 || line.rfind("user.", 0) == 0;
  });
  EXPECT_TRACE((lines));
}

TEST_F(ServiceAccountCourseTest, TheAccountIsLookedUpUntilItFits) {
  for (const char* type : {"0", "1"}) {
    for (size_t lookUps : {2, 3, 5}) {
      Circumstances now;
      now.type = type;
      now.lookUps = lookUps;
      ExpectCreation(now);
    }
  }
}

TEST_F(ServiceAccountCourseTest, TheClassOfTheNamesIsFromThePackageOrVantor) {
  for (const char* serviceClass : {"HOST", "", "MSSQL", "VANTOR"}) {
    Circumstances now;
    now.serviceClass = serviceClass;
    ExpectCreation(now);
  }
}

TEST_F(ServiceAccountCourseTest, AComputerWithoutNamesRegistersNone) {
  Circumstances now;
  now.hasPrincipalNames = false;
  ExpectCreation(now);
}

TEST_F(ServiceAccountCourseTest, WithoutRoomForTheDistinguishedNameTheRestIsLeftOut) {
  constexpr SIZE_T kRoom = 2048;
  Circumstances now;
  Prepare(now);
  TheWorld().On<::HeapAlloc>([](HANDLE, DWORD flags, SIZE_T size) -> void* {
    if (size == kRoom) return nullptr;
    void* block = rig::GuardedHeap::Get().Allocate(size);
    return (flags & HEAP_ZERO_MEMORY) != 0 ? std::memset(block, 0, size) : block;
  });
  EXPECT_EQ(Run(23), 0u);
  std::vector<std::string> lines = Course(now).Creation();
  auto last = std::find_if(lines.begin(), lines.end(),
                           [](const std::string& line) { return line.rfind("CoCreateInstance", 0) == 0; });
  lines.erase(last, lines.end());
  EXPECT_TRACE((lines));
  EXPECT_EQ(Published(), "svc|<password>|CORP");
}

TEST_F(ServiceAccountCourseTest, WhatIsMissingMakesTheStepOfACreationFail) {
  std::vector<const char*> all(std::begin(kModules), std::end(kModules));
  all.insert(all.end(), std::begin(kFunctions), std::end(kFunctions));
  for (const char* type : {"0", "1"}) {
    for (const char* missing : all) {
      SCOPED_TRACE(missing);
      Circumstances now;
      now.type = type;
      now.missing = {missing};
      ExpectCreation(now);
    }
  }
}

}  // namespace service_account_course_test
