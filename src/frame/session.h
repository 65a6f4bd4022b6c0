// What an action needs of the installer: properties, the log, rollback. The chief header of the
// library; every action includes it.
#pragma once

#include <windows.h>
// After windows.h, on which they build.
#include <msi.h>
#include <msiquery.h>

#include "paths/path.h"

extern "C" {

/// Returns the value of the property `name` as a new heap string, which the caller frees with HeapFreeSafe
/// (or holds in a HeapStringW); an unset property is an empty string. Null when the read or an allocation
/// fails; the last error then says why: the installer's code, or ERROR_OUTOFMEMORY.
wchar_t* ReadPropertyW(MSIHANDLE session, const wchar_t* name);

/// The same with an 8-bit name and value.
char* ReadPropertyA(MSIHANDLE session, const char* name);

/// Sets the folder property `name` to the text of `path`, closed by one backslash as the installer's folder
/// properties are. Returns 1 when the property was set, 0 when the path gives no text.
int SetDirectoryProperty(MSIHANDLE session, const wchar_t* name, PathObject* path);

/// Returns the full path of the client executable `fileName` (8-bit, no folder) as a new heap string, which
/// the caller frees: in the folder that the property DIR_CLIENT names or, where it is empty, in the Windows
/// folder. `ignored` is there for callers that pass a context; null is returned when no path can be made.
wchar_t* ResolveClientProgramPath(MSIHANDLE session, const void* ignored, const char* fileName);

/// Writes one line to the installer's log: the text that the format engine makes of `format` and the
/// arguments, cut to 255 bytes, behind the library's mark. Returns 0, also when no line could be written.
int LogSetupMessage(MSIHANDLE session, const char* format, ...);

/// Writes `text` to the installer's log as it stands, without formatting, behind the mark of wide lines.
void LogSetupTextW(MSIHANDLE session, const wchar_t* text);

/// Whether the installer is rolling back (asked by deferred actions).
bool IsRollback(MSIHANDLE session);

}  // extern "C"

/// Reads the property `name` into `buffer`, whose size counts the terminator; an unset property is an empty
/// text. Returns false if the value does not fit or cannot be read; the buffer then holds what the installer
/// left there.
template <DWORD size>
bool ReadShortProperty(MSIHANDLE session, const char* name, char (&buffer)[size]) {
  DWORD count = size;
  return MsiGetPropertyA(session, name, buffer, &count) == ERROR_SUCCESS;
}

/// The same with a wide name and value.
template <DWORD size>
bool ReadShortProperty(MSIHANDLE session, const wchar_t* name, wchar_t (&buffer)[size]) {
  DWORD count = size;
  return MsiGetPropertyW(session, name, buffer, &count) == ERROR_SUCCESS;
}
