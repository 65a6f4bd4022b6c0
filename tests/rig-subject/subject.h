// A library with known faults. Used by the rig's own tests (tests/unit/rig/), which must find each of them.
#pragma once

#include <windows.h>

#include <msi.h>
#include <stddef.h>

extern "C" {

// ---- Heap.

/// Allocates `size` bytes and keeps them. Returns the block.
void* SubjectLeak(size_t size);
/// Frees a block.
void SubjectFree(void* block);
/// Allocates `size` bytes, writes one byte at `offset` (negative: before the block) and frees the block.
void SubjectWriteAt(size_t size, ptrdiff_t offset);
/// Allocates `size` bytes and returns the byte at `offset`; with `freeFirst` the block is freed before that,
/// else after.
unsigned char SubjectReadAt(size_t size, ptrdiff_t offset, BOOL freeFirst);
/// Allocates a block with `flags` (HEAP_ZERO_MEMORY or 0), grows it from 5 to 9 bytes with the same flags,
/// copies its 9 bytes to `bytes` and frees the block.
void SubjectGrow(DWORD flags, unsigned char* bytes);
/// Frees a block twice.
void SubjectFreeTwice();
/// Passes HeapFree an address that is not a block.
void SubjectFreeForeign();
/// Reads through a null pointer.
int SubjectReadNull();
/// Calls itself `depth` times. Returns the sum of the numbers up to `depth`.
int SubjectRecurse(int depth);
/// Executes a trap instruction.
void SubjectTrap();
/// Returns the byte at `address`.
unsigned char SubjectPeek(const unsigned char* address);

/// The constants of SubjectReadConstant, and their sizes in bytes, with the terminator.
enum SubjectConstant { kSubjectText, kSubjectWideText, kSubjectTable };
constexpr size_t kSubjectTextSize = 6;
constexpr size_t kSubjectWideTextSize = 10;
constexpr size_t kSubjectTableSize = 12;
/// Returns the byte at `offset` of a constant.
unsigned char SubjectReadConstant(SubjectConstant constant, ptrdiff_t offset);

/// Writes `length` bytes into a buffer of 16 bytes on its stack. Returns the first byte.
int SubjectOverrunStack(size_t length);

// ---- State.

/// Returns the number of its calls since the library was loaded.
int SubjectCount();
/// Returns the sum of `count` ints.
int SubjectSum(int count, ...);

// ---- Keys, records, modules.

/// Opens "HKEY_CURRENT_USER\Software\Subject" and closes it `closings` times. With `readBehind`, then reads
/// a value of it. Returns the error of opening.
LSTATUS SubjectKey(int closings, BOOL readBehind);
/// Opens a missing key and closes the handle that the failing call leaves.
void SubjectCloseLeftover();
/// Creates a record and keeps it.
MSIHANDLE SubjectKeepRecord();
/// Calls RegDeleteKeyA.
LSTATUS SubjectDeleteKey(HKEY root, const char* path);
/// Loads SHLWAPI.DLL, calls its "SHDeleteKey" for the path below HKEY_CURRENT_USER, and frees the module
/// unless `keep`. Returns the function's result, 1 if the module is missing, 2 if the function is missing.
LSTATUS SubjectDeleteTree(const char* path, BOOL keep);
/// Calls GetSystemWindowsDirectoryW, found by name in KERNEL32. Returns its result, ~0 if KERNEL32 or it is
/// missing.
UINT SubjectWindowsDirectory(wchar_t* buffer, UINT size);
/// Looks for a function that no table declares.
FARPROC SubjectFindUnknown();
/// Changes the error mode; restores it if `restore`.
void SubjectErrorMode(BOOL restore);

// ---- The installer and the system, called directly.

UINT SubjectGetPropertyA(MSIHANDLE session, const char* name, char* buffer, DWORD* count);
UINT SubjectGetPropertyW(MSIHANDLE session, const wchar_t* name, wchar_t* buffer, DWORD* count);
UINT SubjectSetPropertyA(MSIHANDLE session, const char* name, const char* value);
/// Sends a record of two fields as a message of this type; fields 0 and 1 as given. Returns
/// MsiProcessMessage's result, -2 if no record can be created.
int SubjectSend(MSIHANDLE session, DWORD type, const char* field0, const char* field1);
/// Shows a message box with an OK button.
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
/// Calls GetVersion.
DWORD SubjectVersion();
/// Calls GetTickCount.
DWORD SubjectTicks();

// ---- The shell and format texts.

/// Copies the known folder's path to `path` (MAX_PATH characters) and frees it unless `keep`. Returns
/// SHGetKnownFolderPath's result, 1 if the function is missing.
HRESULT SubjectKnownFolder(const GUID* id, wchar_t* path, BOOL keep);
/// Calls SHGetFolderPathW; 1 if it is missing.
HRESULT SubjectFolder(int csidl, wchar_t* path);
/// Splits the line and copies its last element to `last` (MAX_PATH characters); frees the list unless `keep`.
/// Returns the number of elements, -1 on failure.
int SubjectSplit(const wchar_t* line, wchar_t* last, BOOL keep);
/// Calls wsprintfW with "%s|%04d %d%%|%u" and the arguments.
int SubjectStamp(wchar_t* buffer, const wchar_t* text, int first, int second, unsigned third);
/// Calls wsprintfW with "%d %hs %d" and some arguments.
int SubjectStampOther(wchar_t* buffer);

// ---- Services and windows.

/// Opens the service with `access` through a manager handle opened with SC_MANAGER_CONNECT only, and sends
/// it the control. Then closes both handles; with `keep` the service stays open. Stores the state from the
/// control's status record, 0 if that has none. Returns the first error.
DWORD SubjectService(const char* name, DWORD access, DWORD control, DWORD* state, BOOL keep);
/// Starts the service with one argument, or with none if `argument` is null. Then queries the state and
/// stores it. Returns the error of the last call that failed.
DWORD SubjectStartService(const char* name, const char* argument, DWORD* state);
/// Opens the service with `access` and queries its configuration, with wide text if `wide`, into a block of
/// 512 bytes. Stores the account's name, which must be ASCII; stores nothing if it is null. Returns the last
/// error.
DWORD SubjectServiceAccount(const char* name, DWORD access, BOOL wide, char* account);
/// True if FindWindowA finds the window.
BOOL SubjectFindWindow(const char* windowClass, const char* title);
/// Finds the window and posts it the message with 1 and 2, or sends it with 3 and 4. False if posting fails.
BOOL SubjectTellWindow(const char* windowClass, const char* title, UINT message, BOOL post);

// ---- For the sweep: each allocates, opens a key, reads it, sets a property.

/// The faults that a sweep can find in SubjectAction.
enum SubjectFault {
  kSubjectSound,    ///< None: every path frees everything and returns 0.
  kSubjectLeaks,    ///< Keeps its block if the key cannot be opened.
  kSubjectCrashes,  ///< Writes through the null pointer of a failed allocation.
  kSubjectLies,     ///< Returns 5 if the property cannot be set.
  kSubjectWanders,  ///< Allocates once more if the tick count is odd.
  kSubjectStrays,   ///< Calls a function that nobody answers if the value cannot be read.
};
UINT SubjectAction(MSIHANDLE session, SubjectFault fault);

// ---- COM, by late binding of OLE32 and OLEAUT32.

/// How SubjectCom treats the stream that it creates.
enum SubjectComFault {
  kSubjectComSound,          ///< Frees everything.
  kSubjectComKeepsObject,    ///< Does not release the stream.
  kSubjectComReleasesTwice,  ///< Releases it twice.
  kSubjectComKeepsStart,     ///< Does not uninitialise COM.
  kSubjectComKeepsString,    ///< Does not free a system string.
  kSubjectComCallsOther,     ///< Calls a method that the fake does not have.
  kSubjectComUsesLeftover,   ///< Releases the object that the creation leaves, even if the creation fails.
};
/// Starts COM, creates the class `{00000000-0000-0000-0000-00000000C0DE}` as IStream, writes 4 bytes to it,
/// queries it for ISequentialStream, and frees everything. Returns the first failing HRESULT, else S_OK.
HRESULT SubjectCom(SubjectComFault fault);

/// Entry points as packages call them: the first is SubjectAction without a fault, the second returns 1603.
UINT WINAPI CustomAction1(MSIHANDLE session);
UINT WINAPI CustomAction2(MSIHANDLE session);

}  // extern "C"
