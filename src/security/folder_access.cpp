// Gives one account access to a file or folder of the server.
//
// CustomAction25  gives an account full control.
//                 CustomActionData: ACCOUNT "*" PATH; a backslash before the account is ignored.
// CustomAction33  gives access to the account that a service runs under.
//                 CustomActionData: SERVICE "*" LETTERS "*" PATH; the letters are "r" (read), "w" (write) and
//                 "x" (execute).
//
// Sub-folders and files inherit the entry. Both do nothing in a rollback. Both log the outcome, but not data
// that cannot be read; CustomAction33 also ignores incomplete data silently. Both always return 0.

#include "base/heap.h"
#include "base/text.h"
#include "format/format.h"
#include "security/access_list.h"
#include "security/service_configuration.h"

namespace {

constexpr wchar_t kSeparator = L'*';

struct PermissionLetter {
  wchar_t letter;
  DWORD mode;
};
constexpr PermissionLetter kPermissionLetters[] = {
    {L'r', kAccessRead},
    {L'w', kAccessWrite},
    {L'x', kAccessExecute},
};

// Converts `text` to UTF-8 in a new heap string; null if out of memory.
char* ToUtf8(const wchar_t* text) {
  unsigned size = FormatString(nullptr, 0, "%ls", text) + 1;
  auto* buffer = static_cast<char*>(HeapAllocZero(size));
  if (buffer) FormatString(buffer, size, "%ls", text);
  return buffer;
}

int GrantFullControl(const wchar_t* account, wchar_t* pathText) {
  HeapStringA name(ToUtf8(account));
  PathRef path(PathFromWrittenWide(pathText));
  return ApplyAccountAccess(path.get(), name.get(), kAccessInherit | kAccessAll);
}

// Returns the mode for the letters; ignores other characters.
DWORD ParseMode(const wchar_t* letters) {
  DWORD mode = kAccessInherit;
  for (; *letters; ++letters) {
    for (const PermissionLetter& permission : kPermissionLetters) {
      if (*letters == permission.letter) mode |= permission.mode;
    }
  }
  return mode;
}

void GrantServiceAccess(MSIHANDLE session, const wchar_t* serviceName, DWORD mode, PathObject* path) {
  ConfiguredService configured(session, serviceName, SERVICE_QUERY_CONFIG);
  if (!configured.service) return;
  SC_HANDLE service = configured.service.get();
  auto query = [service](BYTE* block, DWORD size, DWORD* needed) {
    return QueryServiceConfigA(service, reinterpret_cast<QUERY_SERVICE_CONFIGA*>(block), size, needed);
  };
  HeapBlock<QUERY_SERVICE_CONFIGA> configuration(
      static_cast<QUERY_SERVICE_CONFIGA*>(QueryConfiguration(session, query)));
  if (!configuration) return;
  const char* account = configuration.get()->lpServiceStartName;
  int result = ApplyAccountAccess(path, account, mode);
  LogSetupMessage(session, "set ACL (%ld) for %s=%03lo on %p{O}", result, account, mode & kAccessAll, path);
}

}  // namespace

extern "C" UINT WINAPI CustomAction25(MSIHANDLE session) {
  if (IsRollback(session)) return ERROR_SUCCESS;
  HeapStringW data(ReadPropertyW(session, L"CustomActionData"));
  if (!data) return ERROR_SUCCESS;
  wchar_t* path = TxtCutW(data.get(), kSeparator);
  if (!path) {
    LogSetupMessage(session, "no path to apply ACL (%ls)", data.get());
    return ERROR_SUCCESS;
  }
  const wchar_t* account = data.get();
  if (*account == L'\\') ++account;
  if (!*account) {
    LogSetupMessage(session, "no change to ACL on %ls", data.get());
    return ERROR_SUCCESS;
  }
  // On purpose: the line ends with the account as given, where a reader expects the path.
  LogSetupMessage(session, "setting ACL for %ls on %ls", account, data.get());
  int result = GrantFullControl(account, path);
  if (result == 0) {
    LogSetupMessage(session, "set ACL for %ls", account);
  } else {
    LogSetupMessage(session, "failure %ld (0x%08lX) setting ACL for %ls", result, result, account);
  }
  return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CustomAction33(MSIHANDLE session) {
  if (IsRollback(session)) return ERROR_SUCCESS;
  HeapStringW data(ReadPropertyW(session, L"CustomActionData"));
  if (!data) return ERROR_SUCCESS;
  wchar_t* letters = TxtCutW(data.get(), kSeparator);
  if (!letters) return ERROR_SUCCESS;
  wchar_t* pathText = TxtCutW(letters, kSeparator);
  if (!pathText) return ERROR_SUCCESS;
  PathRef path(PathFromWrittenWide(pathText));
  GrantServiceAccess(session, data.get(), ParseMode(letters), path.get());
  return ERROR_SUCCESS;
}
