#include "hxrun/machine.h"

#include <windows.h>

#include <vector>

#include "rig/print.h"
#include "rig/secrets.h"

namespace hxrun {
namespace {

constexpr wchar_t kLibrary[] = L"\\hxsetup.dll";

#ifdef __aarch64__
constexpr WORD kMachine = IMAGE_FILE_MACHINE_ARM64;
constexpr char kProcessor[] = "ARM64";
constexpr char kOtherProcessor[] = "x64";
#else
constexpr WORD kMachine = IMAGE_FILE_MACHINE_AMD64;
constexpr char kProcessor[] = "x64";
constexpr char kOtherProcessor[] = "ARM64";
#endif

// Reads the processor of an image; 0 if the file is not an image.
WORD MachineOf(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return 0;
  IMAGE_DOS_HEADER dos = {};
  struct {
    DWORD signature;
    IMAGE_FILE_HEADER header;
  } nt = {};
  DWORD read = 0;
  const bool isImage = ReadFile(file, &dos, sizeof dos, &read, nullptr) && read == sizeof dos &&
                       dos.e_magic == IMAGE_DOS_SIGNATURE &&
                       SetFilePointer(file, dos.e_lfanew, nullptr, FILE_BEGIN) != INVALID_SET_FILE_POINTER &&
                       ReadFile(file, &nt, sizeof nt, &read, nullptr) && read == sizeof nt &&
                       nt.signature == IMAGE_NT_SIGNATURE;
  CloseHandle(file);
  return isImage ? nt.header.Machine : WORD{0};
}

// Reads the version of a file as "1.2.0"; empty if it has none.
std::string VersionOf(const std::wstring& path) {
  DWORD unused = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &unused);
  std::vector<char> block(size);
  VS_FIXEDFILEINFO* fixed = nullptr;
  UINT length = 0;
  if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
      !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length)) {
    return {};
  }
  return std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." +
         std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
         std::to_string(HIWORD(fixed->dwFileVersionLS));
}

std::wstring OwnPath() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

void Write(DWORD which, const std::string& line) {
  const std::string text = rig::Secret::Masked(line) + "\r\n";
  HANDLE output = GetStdHandle(which);
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(output, &mode)) {
    const std::wstring wide = rig::ToWide(text);
    WriteConsoleW(output, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
    return;
  }
  for (size_t at = 0; at < text.size(); at += written) {
    if (!WriteFile(output, text.data() + at, static_cast<DWORD>(text.size() - at), &written, nullptr)) return;
  }
}

}  // namespace

std::wstring OwnFolder() {
  const std::wstring path = OwnPath();
  return path.substr(0, path.find_last_of(L'\\'));
}

std::string CheckLibrary(const std::wstring& folder) {
  const std::wstring path = folder + kLibrary;
  const std::string shown = rig::ToUtf8(path);
  if (GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) {
    throw Failure(shown + " is missing: hxrun.exe must be in the folder of the library that it runs.");
  }
  const WORD machine = MachineOf(path);
  if (machine == 0) throw Failure(shown + " is not a library of Windows.");
  if (machine != kMachine) {
    throw Failure(shown + " is for " + kOtherProcessor + ", and this hxrun is for " + kProcessor +
                  ". Take both from the same folder of a release.");
  }
  const std::string version = VersionOf(path);
  const std::string own = VersionOf(OwnPath());
  if (version != own) {
    throw Failure(shown + " has version " + (version.empty() ? "(none)" : version) +
                  ", and this hxrun has version " + own + ". Take both from one release.");
  }
  return version;
}

std::string UserName() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return "an unknown user";
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<char> block(size);
  wchar_t name[256];
  wchar_t domain[256];
  DWORD nameSize = 256;
  DWORD domainSize = 256;
  SID_NAME_USE use;
  const bool isKnown = GetTokenInformation(token, TokenUser, block.data(), size, &size) &&
                       LookupAccountSidW(nullptr, reinterpret_cast<TOKEN_USER*>(block.data())->User.Sid, name,
                                         &nameSize, domain, &domainSize, &use);
  CloseHandle(token);
  return isKnown ? rig::ToUtf8(domain) + "\\" + rig::ToUtf8(name) : "an unknown user";
}

void Print(const std::string& line) {
  Write(STD_OUTPUT_HANDLE, line);
}

void PrintError(const std::string& line) {
  Write(STD_ERROR_HANDLE, line);
}

bool HasPerson() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != 0;
}

bool AskPerson(const std::string& question) {
  PrintError(question);
  wchar_t answer[16] = {};
  DWORD count = 0;
  if (!ReadConsoleW(GetStdHandle(STD_INPUT_HANDLE), answer, 15, &count, nullptr)) return false;
  std::wstring text(answer, count);
  while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n' || text.back() == L' '))
    text.pop_back();
  return text == L"yes";
}

}  // namespace hxrun
