// The functions for accounts, access lists, the configuration of services, the directory and the setup
// library.
#include <windows.h>
// Must come after windows.h.
#include <aclapi.h>
#include <lm.h>
#include <ntdsapi.h>
#include <ntsecapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <setupapi.h>
// Must come after oleauto.h; adshlp.h after iads.h.
#include <iads.h>

#include <adshlp.h>

#include "rig/function.h"

// Undefined because HX_FUNCTION needs it as a module's name; a header defines it as a macro.
#undef NTDSAPI

namespace rig {
namespace {

// Identities.
HX_FUNCTION(KERNEL32, GetComputerNameW, FailsWith(FALSE, ERROR_BUFFER_OVERFLOW));
HX_FUNCTION(KERNEL32, GetComputerNameExW, FailsWith(FALSE, ERROR_MORE_DATA));
HX_FUNCTION(ADVAPI32, GetTokenInformation, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kHandle, Arg<0>);
HX_FUNCTION(ADVAPI32, LookupAccountSidW, FailsWith(FALSE, ERROR_NONE_MAPPED));
HX_FUNCTION(ADVAPI32, LookupAccountNameW, FailsWith(FALSE, ERROR_NONE_MAPPED));
HX_FUNCTION(ADVAPI32, CreateWellKnownSid, FailsWith(FALSE, ERROR_INVALID_PARAMETER));
HX_FUNCTION(OLE32, CoCreateGuid, FailsAs(E_OUTOFMEMORY));

// Accounts and domains.
HX_FUNCTION(NETAPI32, NetWkstaGetInfo, FailsAs(ERROR_ACCESS_DENIED)).Acquires(kNetBuffer, Out<2>);
HX_FUNCTION(NETAPI32, NetGetDCName, FailsAs(NERR_DCNotFound)).Acquires(kNetBuffer, Out<2>);
HX_FUNCTION(NETAPI32, NetUserAdd, FailsAs(NERR_PasswordTooShort));
HX_FUNCTION(NETAPI32, NetUserGetInfo, FailsAs(NERR_UserNotFound)).Acquires(kNetBuffer, Out<3>);
HX_FUNCTION(NETAPI32, NetUserDel, FailsAs(NERR_UserNotFound));
HX_FUNCTION(NETAPI32, NetApiBufferFree, kCannotFail).Releases(kNetBuffer, Arg<0>);

// Account rights.
HX_FUNCTION(ADVAPI32, LsaOpenPolicy, FailsAs(static_cast<NTSTATUS>(0xC0000022)))
    .Hex(Arg<2>)
    .Acquires(kPolicy, Out<3>);
HX_FUNCTION(ADVAPI32, LsaAddAccountRights, FailsAs(static_cast<NTSTATUS>(0xC0000060))).Uses(kPolicy, Arg<0>);
HX_FUNCTION(ADVAPI32, LsaClose, kCannotFail).Releases(kPolicy, Arg<0>);
HX_FUNCTION(ADVAPI32, LsaNtStatusToWinError, kCannotFail).Hex(Arg<0>);

// The directory.
HX_FUNCTION(ACTIVEDS, ADsGetObject, FailsAs(static_cast<HRESULT>(0x80072030))).HandsOut(Arg<2>);
HX_FUNCTION(NTDSAPI, DsGetSpnW, FailsAs(ERROR_INVALID_PARAMETER)).Acquires(kPrincipalNames, Out<8>);
HX_FUNCTION(NTDSAPI, DsBindW, FailsAs(ERROR_NO_SUCH_DOMAIN)).Acquires(kDirectory, Out<2>);
HX_FUNCTION(NTDSAPI, DsWriteAccountSpnW, FailsAs(ERROR_ACCESS_DENIED)).Uses(kDirectory, Arg<0>);
HX_FUNCTION(NTDSAPI, DsUnBindW, kCannotFail).Releases(kDirectory, Out<0>);
HX_FUNCTION(NTDSAPI, DsFreeSpnArrayW, kCannotFail).Releases(kPrincipalNames, Arg<1>);

// Access lists.
HX_FUNCTION(ADVAPI32, SetEntriesInAclW, FailsAs(ERROR_INVALID_ACL)).Acquires(kLocalMemory, Out<3>);
HX_FUNCTION(ADVAPI32, SetNamedSecurityInfoW, FailsAs(ERROR_ACCESS_DENIED))
    .TextArguments()
    .Uses(kLocalMemory, Arg<5>);

// Service configuration.
HX_FUNCTION(ADVAPI32, OpenServiceW, FailsWith(nullptr, ERROR_ACCESS_DENIED))
    .Uses(kService, Arg<0>)
    .Hex(Arg<2>)
    .Acquires(kService, kResult);
HX_FUNCTION(ADVAPI32, QueryServiceConfigA, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, QueryServiceConfigW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, QueryServiceConfig2A, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, ChangeServiceConfig2A, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kService, Arg<0>);

// The setup library.
HX_FUNCTION(SETUPAPI, InstallHinfSectionA, kCannotFail);

}  // namespace
}  // namespace rig
