// The functions of the other system libraries.
#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <wtsapi32.h>

#include "rig/function.h"

namespace rig {
namespace {

// Registry.
HX_FUNCTION(ADVAPI32, RegOpenKeyExA, FailsAs(ERROR_ACCESS_DENIED))
    .Hex(Arg<3>)
    .Uses(kKey, Arg<0>)
    .Acquires(kKey, Out<4>);
HX_FUNCTION(ADVAPI32, RegOpenKeyExW, FailsAs(ERROR_ACCESS_DENIED))
    .Hex(Arg<3>)
    .Uses(kKey, Arg<0>)
    .Acquires(kKey, Out<4>);
HX_FUNCTION(ADVAPI32, RegQueryValueExA, FailsAs(ERROR_ACCESS_DENIED)).Uses(kKey, Arg<0>);
HX_FUNCTION(ADVAPI32, RegQueryValueExW, FailsAs(ERROR_ACCESS_DENIED)).Uses(kKey, Arg<0>);
HX_FUNCTION(ADVAPI32, RegSetValueExA, FailsAs(ERROR_ACCESS_DENIED))
    .Uses(kKey, Arg<0>)
    .CountedBytes(Arg<4>, Arg<5>);
HX_FUNCTION(ADVAPI32, RegSetValueExW, FailsAs(ERROR_ACCESS_DENIED))
    .Uses(kKey, Arg<0>)
    .CountedBytes(Arg<4>, Arg<5>);
HX_FUNCTION(ADVAPI32, RegDeleteKeyA, FailsAs(ERROR_ACCESS_DENIED)).Uses(kKey, Arg<0>);
HX_FUNCTION(ADVAPI32, RegDeleteKeyW, FailsAs(ERROR_ACCESS_DENIED)).Uses(kKey, Arg<0>);
HX_FUNCTION(ADVAPI32, RegDeleteValueA, FailsAs(ERROR_ACCESS_DENIED)).Uses(kKey, Arg<0>);
HX_FUNCTION(ADVAPI32, RegCloseKey, kCannotFail).Releases(kKey, Arg<0>);
// shlwapi.dll does not export this name, only SHDeleteKeyA and SHDeleteKeyW.
HX_FUNCTION_NAMED(SHLWAPI, "SHDeleteKey", SHDeleteKeyA, FailsAs(ERROR_ACCESS_DENIED)).AbsentByDefault();

// Privileges.
HX_FUNCTION(ADVAPI32, LookupPrivilegeValueA, FailsWith(FALSE, ERROR_NO_SUCH_PRIVILEGE));
HX_FUNCTION(ADVAPI32, OpenProcessToken, FailsWith(FALSE, ERROR_ACCESS_DENIED))
    .Hex(Arg<1>)
    .Acquires(kHandle, Out<2>);
HX_FUNCTION(ADVAPI32, AdjustTokenPrivileges, FailsWith(FALSE, ERROR_INVALID_HANDLE)).Uses(kHandle, Arg<0>);

// Sessions.
HX_FUNCTION(WTSAPI32, WTSEnumerateProcessesW, FailsWith(FALSE, ERROR_ACCESS_DENIED))
    .Acquires(kSessionMemory, Out<3>);
HX_FUNCTION(WTSAPI32, WTSEnumerateSessionsW, FailsWith(FALSE, ERROR_ACCESS_DENIED))
    .Acquires(kSessionMemory, Out<3>);
HX_FUNCTION(WTSAPI32, WTSQuerySessionInformationW, FailsWith(FALSE, ERROR_FILE_NOT_FOUND))
    .Acquires(kSessionMemory, Out<3>);
HX_FUNCTION(WTSAPI32, WTSFreeMemory, kCannotFail).Releases(kSessionMemory, Arg<0>);

// Services.
HX_FUNCTION(ADVAPI32, OpenSCManagerA, FailsWith(nullptr, ERROR_ACCESS_DENIED))
    .Hex(Arg<2>)
    .Acquires(kService, kResult);
HX_FUNCTION(ADVAPI32, OpenServiceA, FailsWith(nullptr, ERROR_ACCESS_DENIED))
    .Uses(kService, Arg<0>)
    .Hex(Arg<2>)
    .Acquires(kService, kResult);
HX_FUNCTION(ADVAPI32, ControlService, FailsWith(FALSE, ERROR_SERVICE_NOT_ACTIVE)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, QueryServiceStatus, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, StartServiceA, FailsWith(FALSE, ERROR_SERVICE_REQUEST_TIMEOUT)).Uses(kService, Arg<0>);
HX_FUNCTION(ADVAPI32, CloseServiceHandle, kCannotFail).Releases(kService, Arg<0>);

// The desktop.
HX_FUNCTION(USER32, MessageBoxA, Returns(0)).Hex(Arg<3>);
HX_FUNCTION(USER32, FindWindowA, FailsWith(nullptr, ERROR_FILE_NOT_FOUND));
// The window's own result is returned.
HX_FUNCTION(USER32, SendMessageA, kCannotFail);
HX_FUNCTION(USER32, PostMessageA, FailsWith(FALSE, ERROR_INVALID_WINDOW_HANDLE));
HX_VARIADIC(USER32, wsprintfW, wvsprintfW, Returns(0));

// The shell.
HX_FUNCTION(SHELL32, CommandLineToArgvW, FailsWith(nullptr, ERROR_NOT_ENOUGH_MEMORY))
    .Acquires(kLocalMemory, kResult);
HX_FUNCTION(SHELL32, SHGetKnownFolderPath, FailsAs(E_FAIL)).Acquires(kTaskMemory, Out<3>);
HX_FUNCTION(SHFOLDER, SHGetFolderPathA, FailsAs(E_FAIL));
HX_FUNCTION(SHFOLDER, SHGetFolderPathW, FailsAs(E_FAIL));

// COM.
HX_FUNCTION(OLE32, CoInitializeEx, FailsAs(E_OUTOFMEMORY)).Hex(Arg<1>);
HX_FUNCTION(OLE32, CoUninitialize, kCannotFail);
HX_FUNCTION(OLE32, CoCreateInstance, FailsAs(REGDB_E_CLASSNOTREG)).Hex(Arg<2>).HandsOut(Arg<4>);
HX_FUNCTION(OLE32, CoTaskMemFree, kCannotFail).Releases(kTaskMemory, Arg<0>);
HX_FUNCTION(OLEAUT32, SysAllocString, Returns(nullptr)).Quiet().Acquires(kSystemString, kResult);
HX_FUNCTION(OLEAUT32, SysFreeString, kCannotFail).Quiet().Releases(kSystemString, Arg<0>);
HX_FUNCTION(OLEAUT32, SysStringLen, kCannotFail).Quiet().Uses(kSystemString, Arg<0>);
HX_FUNCTION(OLEAUT32, VariantInit, kCannotFail).Pure();

}  // namespace
}  // namespace rig
