#include "frame/session.h"

#include "base/heap.h"
#include "base/text.h"
#include "files/standard_folders.h"
#include "format/format.h"
#include "frame/installer_record.h"

namespace {

// A property is first read into a buffer of 240 + 16 characters. A longer value is read again into a buffer
// of its length + 16 characters.
constexpr DWORD kFirstPropertyLength = 240;
constexpr DWORD kPropertySlack = 16;

// The size of a log line's text, in bytes with the terminator.
constexpr unsigned kLogLineSize = 256;

// The size of the buffer for the Windows folder, in characters with the terminator.
constexpr UINT kWindowsFolderSize = 128;

template <typename Char, typename GetProperty>
Char* ReadProperty(MSIHANDLE session, const Char* name, GetProperty getProperty) {
  HeapBlock<Char> value;
  DWORD count = kFirstPropertyLength;
  for (;;) {
    count += kPropertySlack;
    value = HeapBlock<Char>(
        static_cast<Char*>(HeapReAllocOrFree(value.release(), static_cast<size_t>(count) * sizeof(Char))));
    UINT status = value ? getProperty(session, name, value.get(), &count) : ERROR_OUTOFMEMORY;
    if (status == ERROR_SUCCESS) return value.release();
    if (status != ERROR_MORE_DATA) {
      value.reset();
      SetLastError(status);
      return nullptr;
    }
  }
}

PathObject* MakeWindowsFolder() {
  wchar_t folder[kWindowsFolderSize] = {};
  // On a terminal server only the newer function returns the machine's folder rather than the user's.
  if (systemWindowsDirectory.IsAvailable()) {
    systemWindowsDirectory(folder, kWindowsFolderSize);
  } else {
    GetWindowsDirectoryW(folder, kWindowsFolderSize);
  }
  return PathFromWide(folder);
}

}  // namespace

wchar_t* ReadPropertyW(MSIHANDLE session, const wchar_t* name) {
  return ReadProperty(session, name, MsiGetPropertyW);
}

char* ReadPropertyA(MSIHANDLE session, const char* name) {
  return ReadProperty(session, name, MsiGetPropertyA);
}

int SetDirectoryProperty(MSIHANDLE session, const wchar_t* name, PathObject* path) {
  HeapStringW pathText(PathToWide(path));
  if (!pathText) return 0;
  size_t length = TxtLenW(pathText.get());
  if (length == 0) return 0;

  constexpr size_t kBackslashAndTerminator = 2;
  HeapStringW text(
      static_cast<wchar_t*>(HeapAllocZero((length + kBackslashAndTerminator) * sizeof(wchar_t))));
  if (!text) return 0;
  CopyBytes(text.get(), pathText.get(), length * sizeof(wchar_t));
  pathText.reset();
  if (text.get()[length - 1] != L'\\') text.get()[length] = L'\\';
  MsiSetPropertyW(session, name, text.get());
  return 1;
}

wchar_t* ResolveClientProgramPath(MSIHANDLE session, const void*, const char* fileName) {
  PathRef folder;
  {
    HeapStringW property(ReadPropertyW(session, L"DIR_CLIENT"));
    bool isSet = property && property.get()[0];
    folder = PathRef(isSet ? PathFromWrittenWide(property.get()) : MakeWindowsFolder());
  }
  if (!folder) return nullptr;
  PathRef program(PathJoin(folder.get(), fileName));
  return PathToWide(program.get());
}

int LogSetupMessage(MSIHANDLE session, const char* format, ...) {
  InstallerRecord record(MsiCreateRecord(2));
  if (!record) return 0;
  char text[kLogLineSize];
  va_list arguments;
  va_start(arguments, format);
  FormatStringV(text, kLogLineSize, format, arguments);
  va_end(arguments);
  MsiRecordSetStringA(record.get(), 0, "Hx Setup Log: [1]");
  MsiRecordSetStringA(record.get(), 1, text);
  MsiProcessMessage(session, INSTALLMESSAGE_INFO, record.get());
  return 0;
}

void LogSetupTextW(MSIHANDLE session, const wchar_t* text) {
  InstallerRecord record(MsiCreateRecord(2));
  if (!record) return;
  // On purpose: the prefix differs from the 8-bit lines'. Readers of the log rely on it to tell the
  // two kinds apart.
  MsiRecordSetStringW(record.get(), 0, L"JN Setup Log: [1]");
  MsiRecordSetStringW(record.get(), 1, text);
  MsiProcessMessage(session, INSTALLMESSAGE_INFO, record.get());
}

bool IsRollback(MSIHANDLE session) {
  return MsiGetMode(session, MSIRUNMODE_ROLLBACK);
}
