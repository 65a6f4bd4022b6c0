// The functions of msi.dll, imported by ordinal.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include "rig/function.h"

namespace rig {
namespace {

HX_FUNCTION(MSI, MsiCloseHandle, kCannotFail).Ordinal(8).Releases(kRecord, Arg<0>);
HX_FUNCTION(MSI, MsiCreateRecord, Returns(0)).Ordinal(17).Acquires(kRecord, kResult);
// A failure looks like FALSE.
HX_FUNCTION(MSI, MsiGetMode, kCannotFail).Ordinal(64).Session();
HX_FUNCTION(MSI, MsiGetPropertyA, FailsAs(ERROR_INVALID_HANDLE)).Ordinal(73).Session();
HX_FUNCTION(MSI, MsiGetPropertyW, FailsAs(ERROR_INVALID_HANDLE)).Ordinal(74).Session();
HX_FUNCTION(MSI, MsiProcessMessage, Returns(-1)).Ordinal(103).Session().Hex(Arg<1>).Uses(kRecord, Arg<2>);
HX_FUNCTION(MSI, MsiRecordSetInteger, FailsAs(ERROR_INVALID_HANDLE)).Ordinal(121).Uses(kRecord, Arg<0>);
HX_FUNCTION(MSI, MsiRecordSetStringA, FailsAs(ERROR_INVALID_HANDLE)).Ordinal(124).Uses(kRecord, Arg<0>);
HX_FUNCTION(MSI, MsiRecordSetStringW, FailsAs(ERROR_INVALID_HANDLE)).Ordinal(125).Uses(kRecord, Arg<0>);
HX_FUNCTION(MSI, MsiSetInternalUI, kCannotFail).Ordinal(141);
HX_FUNCTION(MSI, MsiSetPropertyA, FailsAs(ERROR_FUNCTION_FAILED)).Ordinal(144).Session();
HX_FUNCTION(MSI, MsiSetPropertyW, FailsAs(ERROR_FUNCTION_FAILED)).Ordinal(145).Session();

}  // namespace
}  // namespace rig
