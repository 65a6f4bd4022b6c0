#include "security/service_account.h"

#include "base/heap.h"

namespace {

constexpr wchar_t kDefaultServiceClass[] = L"VANTOR";

}  // namespace

DWORD UpdatePackagePrincipalNames(MSIHANDLE session, const wchar_t* distinguishedName,
                                  PrincipalNameChange change) {
  HeapStringW serviceClass(ReadPropertyW(session, L"PROP_SERVICENAME"));
  bool isSet = serviceClass && serviceClass.get()[0];
  return UpdateServicePrincipalNames(isSet ? serviceClass.get() : kDefaultServiceClass, distinguishedName,
                                     change);
}
