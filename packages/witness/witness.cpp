// The witness: actions that inspect the machine from inside the installer's process and write what they see
// to its log. Packages for tests and the demonstration have it in addition to the library; no other package
// should.
//
// Not every engine keeps an account after the process that made it, which is the one that runs the actions.
// Only an action can see whether the account exists.
//
//   WitnessAccount   logs whether this computer has the account that PROP_ACCOUNTID names
//   RestoreAccount   makes the account that WITNESSACCOUNT names, if it is missing, as an earlier
//   installation
//                    would have left it
//   WitnessAccess    logs the access list of the file or folder in CustomActionData, in SDDL
//   WitnessFailure   fails
//   WitnessCancel    ends the sequence like a user who cancels
#include <windows.h>
// After windows.h, which they need.
#include <aclapi.h>
#include <lm.h>
#include <msi.h>
#include <msiquery.h>
#include <sddl.h>

namespace {

constexpr DWORD kTextSize = 512;
constexpr DWORD kAccountLevel = 1;

// A property of the session; empty if it is not set, or longer than kTextSize - 1 characters.
struct Property {
  wchar_t text[kTextSize];

  Property(MSIHANDLE session, const wchar_t* name) {
    DWORD size = kTextSize;
    if (MsiGetPropertyW(session, name, text, &size) != ERROR_SUCCESS) text[0] = L'\0';
  }
};

void Say(MSIHANDLE session, const wchar_t* subject, const wchar_t* fact) {
  MSIHANDLE record = MsiCreateRecord(2);
  MsiRecordSetStringW(record, 0, L"Witness: [1] [2]");
  MsiRecordSetStringW(record, 1, subject);
  MsiRecordSetStringW(record, 2, fact);
  MsiProcessMessage(session, INSTALLMESSAGE_INFO, record);
  MsiCloseHandle(record);
}

bool HasAccount(const wchar_t* name) {
  BYTE* information = nullptr;
  if (NetUserGetInfo(nullptr, name, kAccountLevel, &information) != NERR_Success) return false;
  NetApiBufferFree(information);
  return true;
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) {
  return TRUE;
}

extern "C" __declspec(dllexport) UINT WINAPI WitnessAccount(MSIHANDLE session) {
  Property name(session, L"PROP_ACCOUNTID");
  Say(session, name.text, HasAccount(name.text) ? L"is an account of this computer" : L"is no account");
  return ERROR_SUCCESS;
}

extern "C" __declspec(dllexport) UINT WINAPI RestoreAccount(MSIHANDLE session) {
  Property name(session, L"WITNESSACCOUNT");
  if (!name.text[0] || HasAccount(name.text)) return ERROR_SUCCESS;
  USER_INFO_1 account = {};
  account.usri1_name = name.text;
  // Nobody logs on to this account, but not every engine accepts an empty password.
  account.usri1_password = name.text;
  account.usri1_priv = USER_PRIV_USER;
  account.usri1_flags = UF_SCRIPT | UF_NORMAL_ACCOUNT;
  // On purpose: never unloaded. Some engines forget the account when this module is unloaded.
  LoadLibraryA("NETAPI32");
  NetUserAdd(nullptr, kAccountLevel, reinterpret_cast<BYTE*>(&account), nullptr);
  return ERROR_SUCCESS;
}

extern "C" __declspec(dllexport) UINT WINAPI WitnessAccess(MSIHANDLE session) {
  Property path(session, L"CustomActionData");
  PSECURITY_DESCRIPTOR security = nullptr;
  wchar_t* list = nullptr;
  if (GetNamedSecurityInfoW(path.text, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr,
                            nullptr, &security) == ERROR_SUCCESS &&
      ConvertSecurityDescriptorToStringSecurityDescriptorW(security, SDDL_REVISION_1,
                                                           DACL_SECURITY_INFORMATION, &list, nullptr)) {
    Say(session, path.text, list);
  } else {
    Say(session, path.text, L"does not tell");
  }
  LocalFree(list);
  LocalFree(security);
  return ERROR_SUCCESS;
}

extern "C" __declspec(dllexport) UINT WINAPI WitnessFailure(MSIHANDLE) {
  return ERROR_INSTALL_FAILURE;
}

extern "C" __declspec(dllexport) UINT WINAPI WitnessCancel(MSIHANDLE) {
  return ERROR_INSTALL_USEREXIT;
}
