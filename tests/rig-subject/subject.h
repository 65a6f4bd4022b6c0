// A library with deliberate faults. Used by the test rig's own tests (tests/unit/rig/), which must
// find each of them.
#pragma once

#include <windows.h>

#include <msi.h>
#include <stddef.h>

extern "C" {

// ---- Heap.

/// Allocates `size` bytes and keeps them. Returns the block.
void* SubjectLeak(size_t size);
/// Gives a block back.
void SubjectFree(void* block);
/// Allocates `size` bytes, writes one byte at `offset` (negative: before the block) and gives the block back.
void SubjectWriteAt(size_t size, ptrdiff_t offset);
/// Allocates `size` bytes and returns the byte at `offset`; gives the block back first when `freeFirst`.
unsigned char SubjectReadAt(size_t size, ptrdiff_t offset, BOOL freeFirst);
/// Allocates a block with `flags` (HEAP_ZERO_MEMORY or 0), grows it from 5 to 9 bytes with the same flags and
/// stores the bytes in `bytes` (9); gives the block back.
void SubjectGrow(DWORD flags, unsigned char* bytes);
/// Gives a block back twice.
void SubjectFreeTwice();
/// Gives back an address that is no block.
void SubjectFreeForeign();
/// Reads through a null pointer.
int SubjectReadNull();
/// Executes a trap instruction.
void SubjectTrap();
/// The first byte at `address`.
unsigned char SubjectPeek(const unsigned char* address);

/// Writes `length` bytes into a buffer of 16 bytes on its stack. Returns the first byte.
int SubjectOverrunStack(size_t length);

// ---- State.

/// Counts its calls since the library was loaded.
int SubjectCount();
/// The sum of `count` ints.
int SubjectSum(int count, ...);

// ---- Keys, records, modules.

/// Opens "HKEY_CURRENT_USER\Software\Subject", closes it `closings` times and then reads a value of it when
/// `readBehind`. Returns the error of opening.
LSTATUS SubjectKey(int closings, BOOL readBehind);
/// Opens a key that is not there and closes what the failing call leaves.
void SubjectCloseLeftover();
/// Makes a record and keeps it.
MSIHANDLE SubjectKeepRecord();
/// Calls RegDeleteKeyA.
LSTATUS SubjectDeleteKey(HKEY root, const char* path);
/// Loads SHLWAPI.DLL, calls its "SHDeleteKey" on the path below HKEY_CURRENT_USER, frees the module unless
/// `keep`. Returns the function's result, 1 when the module is missing, 2 when the function is.
LSTATUS SubjectDeleteTree(const char* path, BOOL keep);
/// Calls GetSystemWindowsDirectoryW, found by name in KERNEL32. Returns its result, ~0 when it is missing.
UINT SubjectWindowsDirectory(wchar_t* buffer, UINT size);
/// Looks for a function that no table declares.
FARPROC SubjectFindUnknown();
/// Changes the error mode; restores it when `restore`.
void SubjectErrorMode(BOOL restore);

// ---- The installer and the system, called straight.

UINT SubjectGetPropertyA(MSIHANDLE session, const char* name, char* buffer, DWORD* count);
UINT SubjectGetPropertyW(MSIHANDLE session, const wchar_t* name, wchar_t* buffer, DWORD* count);
UINT SubjectSetPropertyA(MSIHANDLE session, const char* name, const char* value);
/// Sends a record of two fields, field 0 and 1 as given, as a message of this type. Returns
/// MsiProcessMessage's result, -2 when there is no record.
int SubjectSend(MSIHANDLE session, DWORD type, const char* field0, const char* field1);
/// A box with OK.
int SubjectBox(const char* text, const char* title);
/// Opens the key and reads a value into the buffer.
LSTATUS SubjectReadValue(HKEY root, const char* path, REGSAM access, const char* name, DWORD* type,
                         BYTE* data, DWORD* size);
/// Opens the key and sets a value.
LSTATUS SubjectWriteValue(HKEY root, const char* path, REGSAM access, const char* name, DWORD type,
                          const BYTE* data, DWORD size);
UINT SubjectProfileInt(const char* section, const char* key, INT missing, const char* file);
DWORD SubjectProfileString(const char* section, const char* key, const char* missing, char* buffer,
                           DWORD size, const char* file);
/// Finds GetModuleFileNameW, which no world answers, and calls it.
DWORD SubjectStray();
/// GetVersion.
DWORD SubjectVersion();
/// GetTickCount.
DWORD SubjectTicks();

// ---- The shell and format texts.

/// Copies the known folder's path to `path` (MAX_PATH characters) and frees it unless `keep`. Returns
/// SHGetKnownFolderPath's result, 1 when it is missing.
HRESULT SubjectKnownFolder(const GUID* id, wchar_t* path, BOOL keep);
/// SHGetFolderPathW; 1 when it is missing.
HRESULT SubjectFolder(int csidl, wchar_t* path);
/// Splits the line and copies its last element to `last` (MAX_PATH characters); frees the list unless `keep`.
/// Returns the number of elements, -1 on failure.
int SubjectSplit(const wchar_t* line, wchar_t* last, BOOL keep);
/// wsprintfW of "%s|%04d %d%%|%u" and the arguments.
int SubjectStamp(wchar_t* buffer, const wchar_t* text, int first, int second, unsigned third);
/// wsprintfW of "%d %hs %d" and some arguments.
int SubjectStampOther(wchar_t* buffer);

// ---- Services and windows.

/// Opens the service with `access` through a manager handle that may only connect, sends it the control and
/// closes both, the service not when `keep`. Stores the state that the control's status record says, 0 when
/// it says none. Returns the first error.
DWORD SubjectService(const char* name, DWORD access, DWORD control, DWORD* state, BOOL keep);
/// Starts the service, with one argument or, if that is null, none, and stores the state that a query then
/// gives. Returns the last error.
DWORD SubjectStartService(const char* name, const char* argument, DWORD* state);
/// Opens the service with `access`, asks for its configuration in a block of 512 bytes, of wide text or not,
/// and stores the account's name, which must be ASCII; stores nothing for null. Returns the last error.
DWORD SubjectServiceAccount(const char* name, DWORD access, BOOL wide, char* account);
/// Whether FindWindowA finds the window.
BOOL SubjectFindWindow(const char* windowClass, const char* title);
/// Finds the window and posts it the message with 1 and 2, or sends it with 3 and 4. False when posting
/// fails.
BOOL SubjectTellWindow(const char* windowClass, const char* title, UINT message, BOOL post);

// ---- For the sweep: each allocates, opens a key, reads it, sets a property.

/// What a sweep can find in SubjectAction.
enum SubjectFault {
  kSubjectSound,    ///< Nothing: every path gives everything back and returns 0.
  kSubjectLeaks,    ///< Keeps its block when the key cannot be opened.
  kSubjectCrashes,  ///< Writes through the null pointer of a failed allocation.
  kSubjectLies,     ///< Returns 5 when the property cannot be set.
  kSubjectWanders,  ///< Allocates once more when the tick count is odd.
  kSubjectStrays,   ///< Calls a function that nobody answers when the value cannot be read.
};
UINT SubjectAction(MSIHANDLE session, SubjectFault fault);

// ---- COM, by late binding of OLE32 and OLEAUT32.

/// How SubjectCom treats the stream that it creates.
enum SubjectComFault {
  kSubjectComSound,          ///< Gives everything back.
  kSubjectComKeepsObject,    ///< Does not release the stream.
  kSubjectComReleasesTwice,  ///< Releases it twice.
  kSubjectComKeepsStart,     ///< Does not uninitialise COM.
  kSubjectComKeepsString,    ///< Does not free a system string.
  kSubjectComCallsOther,     ///< Calls a method that the fake does not have.
  kSubjectComUsesLeftover,   ///< Releases what the creation leaves, also when it fails.
};
/// Starts COM, creates the class `{00000000-0000-0000-0000-00000000C0DE}` as IStream, writes 4 bytes to it,
/// asks it for ISequentialStream, gives everything back. Returns the first failing HRESULT, else S_OK.
HRESULT SubjectCom(SubjectComFault fault);

/// Entry points as packages call them: the first is SubjectAction without a fault, the second returns 1603.
UINT WINAPI CustomAction1(MSIHANDLE session);
UINT WINAPI CustomAction2(MSIHANDLE session);

}  // extern "C"
