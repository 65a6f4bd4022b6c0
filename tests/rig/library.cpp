#include "rig/library.h"

#include <map>
#include <stdexcept>

#include "rig/constant_guard.h"
#include "rig/crash.h"
#include "rig/facts.h"
#include "rig/failures.h"
#include "rig/marks.h"
#include "rig/print.h"

namespace rig {
namespace {

Library* currentLibrary = nullptr;
unsigned generation = 0;
void (*beforeUnloading)(const Library&) = nullptr;

std::wstring FolderUnderTest() {
  wchar_t folder[MAX_PATH];
  DWORD length = GetEnvironmentVariableW(L"HX_LIBRARY_DIR", folder, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) {
    throw std::runtime_error("HX_LIBRARY_DIR must name the folder of the library under test");
  }
  return folder;
}

const IMAGE_NT_HEADERS64* HeadersOf(HMODULE module) {
  auto* base = reinterpret_cast<const unsigned char*>(module);
  auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  return reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
}

// Keeps the modules that the library imports loaded, so that loading the next copy is fast.
void Pin(const std::string& module) {
  static std::map<std::string, HMODULE> pinned;
  if (pinned.find(module) == pinned.end()) {
    pinned[module] = LoadLibraryA(module.c_str());
  }
}

// Grows the stack beyond what an action needs: an instruction that touches a page for the first time would be
// executed, and counted, twice.
__attribute__((noinline)) void GrowStack() {
  constexpr size_t kSize = 256 * 1024, kPage = 4096;
  volatile char room[kSize];
  for (size_t at = kSize; at >= kPage; at -= kPage) room[at - kPage] = 0;
}

// Calls an action; counts its instructions if those of this program are counted.
template <class Action>
UINT CallCounted(HMODULE library, const std::string& name, Action action) {
  if (!IsCounted()) return action();
  MarkImage(library);
  GrowStack();
  MarkBegin();
  const UINT result = action();
  MarkEnd();
  MarkWrite("Actions\thx\t" + name);
  return result;
}

}  // namespace

Library::Library(const std::string& file) : Library(file, FolderUnderTest()) {
}

Library::Library(const std::string& file, const std::wstring& folder) : file_(file) {
  if (currentLibrary != nullptr) {
    throw std::runtime_error("a library is loaded already");
  }
  const std::wstring path = folder + L"\\" + ToWide(file);
  handle_ = LoadLibraryW(path.c_str());
  if (handle_ == nullptr) {
    throw std::runtime_error("cannot load " + ToUtf8(path) + ", error " + std::to_string(GetLastError()));
  }
  guardedConstants_ = GuardConstants(handle_);
  currentLibrary = this;
  ++generation;
  ForEachImport([](const Import& import) { Pin(import.module); });
}

Library::~Library() {
  currentLibrary = nullptr;
  ++generation;
  if (beforeUnloading != nullptr) beforeUnloading(*this);
  FreeLibrary(handle_);
  if (GetModuleHandleA(file_.c_str()) != nullptr) {
    Fail(file_ + " is still loaded after the test, so the next test would meet its caches");
  }
}

Library* Library::Current() {
  return currentLibrary;
}

unsigned Library::Generation() {
  return generation;
}

void Library::BeforeUnloading(void (*visit)(const Library&)) {
  beforeUnloading = visit;
}

void Library::ForEachImport(const std::function<void(const Import&)>& visit) const {
  auto* base = reinterpret_cast<unsigned char*>(handle_);
  const IMAGE_DATA_DIRECTORY& directory =
      HeadersOf(handle_)->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.VirtualAddress == 0) {
    return;
  }
  auto* descriptor = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; descriptor->Name != 0; ++descriptor) {
    auto* lookup = reinterpret_cast<const ULONGLONG*>(base + descriptor->OriginalFirstThunk);
    auto* slot = reinterpret_cast<void**>(base + descriptor->FirstThunk);
    for (; *lookup != 0; ++lookup, ++slot) {
      Import import;
      import.module = reinterpret_cast<const char*>(base + descriptor->Name);
      import.slot = slot;
      if (IMAGE_SNAP_BY_ORDINAL64(*lookup)) {
        import.ordinal = static_cast<WORD>(IMAGE_ORDINAL64(*lookup));
      } else {
        import.name = reinterpret_cast<const char*>(base + (*lookup & 0x7FFFFFFF) + sizeof(WORD));
      }
      visit(import);
    }
  }
}

void Library::Patch(const Import& import, const void* target) {
  DWORD before = 0;
  if (!VirtualProtect(import.slot, sizeof *import.slot, PAGE_READWRITE, &before)) {
    throw std::runtime_error("cannot write the import slot of " + import.name);
  }
  *import.slot = const_cast<void*>(target);
  VirtualProtect(import.slot, sizeof *import.slot, before, &before);
}

FARPROC Library::Find(const char* name) const {
  return GetProcAddress(handle_, name);
}

BOOL Library::CallEntry(DWORD reason) const {
  auto* base = reinterpret_cast<unsigned char*>(handle_);
  auto entry = reinterpret_cast<BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID)>(
      base + HeadersOf(handle_)->OptionalHeader.AddressOfEntryPoint);
  return CallGuarded([&] { return entry(handle_, reason, nullptr); });
}

UINT Library::CustomAction(int number, unsigned long session) const {
  std::string name = "CustomAction" + std::to_string(number);
  auto action = reinterpret_cast<UINT(WINAPI*)(unsigned long)>(reinterpret_cast<void*>(Find(name.c_str())));
  if (action == nullptr) {
    Fail(file_ + " does not export " + name);
    return ~0U;
  }
  const ObservedCall call(file_, number);
  const UINT result =
      CallGuarded([&] { return CallCounted(handle_, name, [&] { return action(session); }); });
  call.Returned(result);
  return result;
}

std::string Library::Where(const void* code) const {
  auto offset = reinterpret_cast<ULONG_PTR>(code) - reinterpret_cast<ULONG_PTR>(handle_);
  if (offset >= HeadersOf(handle_)->OptionalHeader.SizeOfImage) {
    return {};
  }
  return file_ + "+" + HexText(offset);
}

}  // namespace rig
