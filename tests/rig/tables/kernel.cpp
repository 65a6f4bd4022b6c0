// The functions of kernel32 that the library calls or finds by name.
#include <windows.h>

#include "rig/function.h"

namespace rig {
namespace {

// Memory.
HX_FUNCTION(KERNEL32, GetProcessHeap, kCannotFail).Quiet();
HX_FUNCTION(KERNEL32, HeapAlloc, Returns(nullptr)).Quiet().Acquires(kBlock, kResult);
HX_FUNCTION(KERNEL32, HeapReAlloc, Returns(nullptr))
    .Quiet()
    .Releases(kBlock, Arg<2>)
    .Acquires(kBlock, kResult);
HX_FUNCTION(KERNEL32, HeapFree, kCannotFail).Quiet().Releases(kBlock, Arg<2>);
HX_FUNCTION(KERNEL32, HeapSize, kCannotFail).Quiet().Uses(kBlock, Arg<2>);
HX_FUNCTION(KERNEL32, LocalFree, kCannotFail).Releases(kLocalMemory, Arg<0>);

// Errors.
HX_FUNCTION(KERNEL32, GetLastError, kCannotFail).Untouched();
HX_FUNCTION(KERNEL32, SetLastError, kCannotFail).Untouched();
HX_FUNCTION(KERNEL32, SetErrorMode, kCannotFail).Hex(Arg<0>);

// Modules and functions found by name.
HX_FUNCTION(KERNEL32, DisableThreadLibraryCalls, FailsWith(FALSE, ERROR_INVALID_HANDLE));
HX_FUNCTION(KERNEL32, GetModuleHandleA, FailsWith(nullptr, ERROR_MOD_NOT_FOUND));
HX_FUNCTION(KERNEL32, GetModuleHandleW, FailsWith(nullptr, ERROR_MOD_NOT_FOUND));
HX_FUNCTION(KERNEL32, LoadLibraryA, FailsWith(nullptr, ERROR_MOD_NOT_FOUND)).Acquires(kModule, kResult);
HX_FUNCTION(KERNEL32, LoadLibraryW, FailsWith(nullptr, ERROR_MOD_NOT_FOUND)).Acquires(kModule, kResult);
HX_FUNCTION(KERNEL32, FreeLibrary, kCannotFail).Releases(kModule, Arg<0>);
HX_FUNCTION(KERNEL32, GetProcAddress, FailsWith(nullptr, ERROR_PROC_NOT_FOUND));
HX_FUNCTION(KERNEL32, GetModuleFileNameW, FailsWith(0, ERROR_INVALID_HANDLE));

// Text and the user's locale.
HX_FUNCTION(KERNEL32, MultiByteToWideChar, FailsWith(0, ERROR_NO_UNICODE_TRANSLATION))
    .Pure()
    .CountedText(Arg<2>, Arg<3>);
HX_FUNCTION(KERNEL32, WideCharToMultiByte, FailsWith(0, ERROR_NO_UNICODE_TRANSLATION))
    .Pure()
    .CountedText(Arg<2>, Arg<3>);
HX_FUNCTION(KERNEL32, CompareStringA, FailsWith(0, ERROR_INVALID_PARAMETER))
    .Pure()
    .CountedText(Arg<2>, Arg<3>)
    .CountedText(Arg<4>, Arg<5>);
HX_FUNCTION(KERNEL32, CompareStringOrdinal, FailsWith(0, ERROR_INVALID_PARAMETER))
    .Pure()
    .CountedText(Arg<0>, Arg<1>)
    .CountedText(Arg<2>, Arg<3>);
HX_FUNCTION(KERNEL32, CompareStringW, FailsWith(0, ERROR_INVALID_PARAMETER))
    .Pure()
    .CountedText(Arg<2>, Arg<3>)
    .CountedText(Arg<4>, Arg<5>);
HX_FUNCTION(KERNEL32, GetLocaleInfoA, FailsWith(0, ERROR_INVALID_FLAGS)).Pure();
HX_FUNCTION(KERNEL32, GetLocaleInfoW, FailsWith(0, ERROR_INVALID_FLAGS)).Pure();
HX_FUNCTION(KERNEL32, GetDateFormatW, FailsWith(0, ERROR_INVALID_PARAMETER)).Pure();
HX_FUNCTION(KERNEL32, GetTimeFormatW, FailsWith(0, ERROR_INVALID_PARAMETER)).Pure();
HX_FUNCTION(KERNEL32, GetACP, kCannotFail).Pure();
HX_FUNCTION(KERNEL32, GetUserDefaultLCID, kCannotFail).Pure();

// Time and the system's version.
HX_FUNCTION(KERNEL32, GetTickCount, kCannotFail).Quiet();
HX_FUNCTION(KERNEL32, GetLocalTime, kCannotFail).Quiet();
HX_FUNCTION(KERNEL32, GetSystemTime, kCannotFail).Quiet();
HX_FUNCTION(KERNEL32, GetTimeZoneInformation, Returns(TIME_ZONE_ID_INVALID)).Quiet();
HX_FUNCTION(KERNEL32, GetVersion, kCannotFail).Quiet();
HX_FUNCTION(KERNEL32, GetVersionExA, FailsWith(FALSE, ERROR_INSUFFICIENT_BUFFER)).Quiet();
HX_FUNCTION(KERNEL32, Sleep, kCannotFail);

// Processes.
HX_FUNCTION(KERNEL32, GetCurrentProcess, kCannotFail).Quiet().RealByDefault();
HX_FUNCTION(KERNEL32, IsWow64Process, FailsWith(FALSE, ERROR_INVALID_HANDLE)).RealByDefault();
HX_FUNCTION(KERNEL32, OpenProcess, FailsWith(nullptr, ERROR_ACCESS_DENIED))
    .Hex(Arg<0>)
    .Acquires(kHandle, kResult);
HX_FUNCTION(KERNEL32, TerminateProcess, FailsWith(FALSE, ERROR_ACCESS_DENIED)).Uses(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, WaitForSingleObject, FailsWith(WAIT_FAILED, ERROR_INVALID_HANDLE))
    .Uses(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, QueryFullProcessImageNameW, FailsWith(FALSE, ERROR_GEN_FAILURE)).Uses(kHandle, Arg<0>);

// Private profile files.
HX_FUNCTION(KERNEL32, GetPrivateProfileIntA, kCannotFail);
HX_FUNCTION(KERNEL32, GetPrivateProfileStringA, FailsWith(0, ERROR_FILE_NOT_FOUND));

// Folders and files.
HX_FUNCTION(KERNEL32, GetWindowsDirectoryA, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetWindowsDirectoryW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetSystemWindowsDirectoryW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetSystemDirectoryW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetCurrentDirectoryW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetTempPathW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, GetFullPathNameW, FailsWith(0, ERROR_NOT_ENOUGH_MEMORY)).RealByDefault();
HX_FUNCTION(KERNEL32, FindFirstFileW, FailsWith(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND))
    .RealByDefault()
    .Acquires(kSearch, kResult);
HX_FUNCTION(KERNEL32, FindNextFileW, FailsWith(FALSE, ERROR_NO_MORE_FILES))
    .RealByDefault()
    .Uses(kSearch, Arg<0>);
HX_FUNCTION(KERNEL32, FindClose, kCannotFail).RealByDefault().Releases(kSearch, Arg<0>);
HX_FUNCTION(KERNEL32, GetFileAttributesW, FailsWith(INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND))
    .RealByDefault();
HX_FUNCTION(KERNEL32, SetFileAttributesW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault().Hex(Arg<1>);
HX_FUNCTION(KERNEL32, CreateFileW, FailsWith(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED))
    .RealByDefault()
    .Acquires(kHandle, kResult)
    .Hex(Arg<1>)
    .Hex(Arg<5>);
HX_FUNCTION(KERNEL32, CreateFileA, FailsWith(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED))
    .RealByDefault()
    .Acquires(kHandle, kResult)
    .Hex(Arg<1>)
    .Hex(Arg<5>);
HX_FUNCTION(KERNEL32, SetFilePointer, FailsWith(INVALID_SET_FILE_POINTER, ERROR_NEGATIVE_SEEK))
    .RealByDefault()
    .Uses(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, ReadFile, FailsWith(FALSE, ERROR_READ_FAULT)).RealByDefault().Uses(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, WriteFile, FailsWith(FALSE, ERROR_DISK_FULL))
    .RealByDefault()
    .Uses(kHandle, Arg<0>)
    .CountedBytes(Arg<1>, Arg<2>);
HX_FUNCTION(KERNEL32, SetEndOfFile, FailsWith(FALSE, ERROR_ACCESS_DENIED))
    .RealByDefault()
    .Uses(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, CloseHandle, kCannotFail).RealByDefault().Releases(kHandle, Arg<0>);
HX_FUNCTION(KERNEL32, CreateDirectoryW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault();
HX_FUNCTION(KERNEL32, RemoveDirectoryW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault();
HX_FUNCTION(KERNEL32, DeleteFileW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault();
HX_FUNCTION(KERNEL32, MoveFileW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault();
HX_FUNCTION(KERNEL32, MoveFileExW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault().Hex(Arg<2>);
HX_FUNCTION(KERNEL32, CopyFileW, FailsWith(FALSE, ERROR_ACCESS_DENIED)).RealByDefault();

}  // namespace
}  // namespace rig
