// What actions need from the installer: properties, the log, the rollback mode. The main header of the
// library, which almost every action includes.
#pragma once

#include <windows.h>
// These need windows.h first.
#include <msi.h>
#include <msiquery.h>

#include "paths/path.h"

extern "C" {

/// Returns the value of the property `name` as a new heap string, which the caller frees with HeapFreeSafe
/// (or holds in a HeapStringW). Returns an empty string for an unset property. Returns null if the read or an
/// allocation fails; the last error is then the installer's code, or ERROR_OUTOFMEMORY.
wchar_t* ReadPropertyW(MSIHANDLE session, const wchar_t* name);

/// ReadPropertyW with an 8-bit name and value.
char* ReadPropertyA(MSIHANDLE session, const char* name);

/// Sets the folder property `name` to the text of `path`, with a backslash at the end as in all folder
/// properties of the installer. Returns 1 after setting it; the installer's answer is ignored. Returns 0 if
/// the path is null or has no text, and if out of memory.
int SetDirectoryProperty(MSIHANDLE session, const wchar_t* name, PathObject* path);

/// Returns the full path of the client executable `fileName` (8-bit, without a folder) as a new heap string,
/// which the caller frees with HeapFreeSafe. The folder is the value of the property DIR_CLIENT, or the
/// Windows folder if that is empty or cannot be read. Returns null if the path cannot be made. `ignored` is
/// for callers that pass a context.
wchar_t* ResolveClientProgramPath(MSIHANDLE session, const void* ignored, const char* fileName);

/// Formats `format` and the arguments with the format engine, cuts the text to 255 bytes, and writes it to
/// the installer's log as one line with the prefix "Hx Setup Log: ". Returns 0, also if the line could not be
/// written.
int LogSetupMessage(MSIHANDLE session, const char* format, ...);

/// Writes `text` unchanged to the installer's log as one line, with the prefix of wide lines,
/// "JN Setup Log: ".
void LogSetupTextW(MSIHANDLE session, const wchar_t* text);

/// Returns true if the installer is rolling back. Called by deferred actions.
bool IsRollback(MSIHANDLE session);

}  // extern "C"

/// Reads the property `name` into `buffer`, whose size includes the terminator. An unset property is read as
/// an empty string. Returns false if the value does not fit or cannot be read; the buffer then holds whatever
/// the installer left in it.
template <DWORD size>
bool ReadShortProperty(MSIHANDLE session, const char* name, char (&buffer)[size]) {
  DWORD count = size;
  return MsiGetPropertyA(session, name, buffer, &count) == ERROR_SUCCESS;
}

/// ReadShortProperty with a wide name and value.
template <DWORD size>
bool ReadShortProperty(MSIHANDLE session, const wchar_t* name, wchar_t (&buffer)[size]) {
  DWORD count = size;
  return MsiGetPropertyW(session, name, buffer, &count) == ERROR_SUCCESS;
}
