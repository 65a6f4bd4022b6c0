#include "rig/world/process.h"

#include <algorithm>
#include <cstring>

#include "rig/function.h"
#include "rig/guarded_heap.h"
#include "rig/print.h"

namespace rig {

Heap::Heap(Rig& rig) : rig_(rig) {
}

Heap::~Heap() {
  Reclaim();
}

void Heap::Reclaim() {
  for (uint64_t block : rig_.ledger.Values(kBlock)) {
    GuardedHeap::Get().Free(reinterpret_cast<void*>(block));
  }
  rig_.ledger.Forget();
}

void Heap::Install() {
  // Any value will do: it must only come back unchanged.
  static const auto kHandle = reinterpret_cast<HANDLE>(uintptr_t{0x48454150});
  auto check = [](HANDLE heap) {
    if (heap != kHandle) {
      Fail("a heap function is given a handle that is not the process heap");
    }
  };
  rig_.On<::GetProcessHeap>([] { return kHandle; });
  rig_.On<::HeapAlloc>([check](HANDLE heap, DWORD flags, SIZE_T size) -> void* {
    check(heap);
    void* block = GuardedHeap::Get().Allocate(size);
    if (block != nullptr && (flags & HEAP_ZERO_MEMORY) != 0) {
      std::memset(block, 0, size);
    }
    return block;
  });
  rig_.On<::HeapReAlloc>([this, check](HANDLE heap, DWORD flags, void* block, SIZE_T size) {
    check(heap);
    return Grow(flags, block, size);
  });
  rig_.On<::HeapFree>([check](HANDLE heap, DWORD, void* block) {
    check(heap);
    // The ledger reports a block that is not held.
    if (block != nullptr && GuardedHeap::Get().Free(block) == GuardedHeap::FreeResult::kOverrun) {
      Fail("the bytes around a heap block were overwritten (found by HeapFree)");
    }
    return TRUE;
  });
  if (rig_.GetPolicy() == Policy::kAnswered) {
    rig_.On<::LocalFree>([](HLOCAL memory) -> HLOCAL {
      TakeBack(memory);
      return nullptr;
    });
  }
  rig_.On<::HeapSize>([check](HANDLE heap, DWORD, const void* block) {
    check(heap);
    return static_cast<SIZE_T>(GuardedHeap::Get().SizeOf(block));
  });
}

void* Heap::Give(const Kind& kind, size_t size, const void* bytes) {
  void* memory = GuardedHeap::Get().Allocate(size);
  if (memory != nullptr && bytes != nullptr) {
    std::memcpy(memory, bytes, size);
  }
  rig_.ledger.Take(kind, ToWord(memory));
  return memory;
}

// The ledger reports memory that is not held.
void Heap::TakeBack(void* memory) {
  if (memory != nullptr && GuardedHeap::Get().Free(memory) == GuardedHeap::FreeResult::kOverrun) {
    Fail("the bytes around a buffer of the system were overwritten");
  }
}

// Always moves the block, so that use of the old address is caught.
void* Heap::Grow(DWORD flags, void* block, size_t size) {
  ptrdiff_t before = GuardedHeap::Get().SizeOf(block);
  if (before < 0) {
    Fail("HeapReAlloc is given an address that is not a block in use");
    return nullptr;
  }
  void* grown = GuardedHeap::Get().Allocate(size);
  if (grown == nullptr) {
    return nullptr;
  }
  size_t kept = std::min(size, static_cast<size_t>(before));
  std::memcpy(grown, block, kept);
  if ((flags & HEAP_ZERO_MEMORY) != 0) {
    std::memset(static_cast<char*>(grown) + kept, 0, size - kept);
  }
  if (GuardedHeap::Get().Free(block) == GuardedHeap::FreeResult::kOverrun) {
    Fail("the bytes around a heap block were overwritten (found by HeapReAlloc)");
  }
  return grown;
}

HMODULE Modules::HandleOf(const std::string& module) {
  for (const auto& [handle, name] : handles_) {
    if (name == module) {
      return handle;
    }
  }
  // Addresses without memory: the library must not look into a module.
  auto handle = reinterpret_cast<HMODULE>(uintptr_t{0x7F0000000000} + handles_.size() * 0x10000);
  handles_[handle] = module;
  rig_.ledger.Call(ToWord(handle), module);
  return handle;
}

HMODULE Modules::Find(const char* path) {
  if (path == nullptr) {
    return HandleOf("PROGRAM");
  }
  std::string module = declarations::ModuleName(path);
  if (loaded_.count(module) == 0 || missing_.count(module) != 0) {
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  return HandleOf(module);
}

HMODULE Modules::Load(const std::string& path) {
  std::string module = declarations::ModuleName(path);
  auto missing = missing_.find(module);
  if (missing != missing_.end()) {
    SetLastError(missing->second);
    return nullptr;
  }
  if (!declarations::HasModule(module)) {
    Fail("the library loads " + path + ", of which tests/rig/tables/*.cpp declare no function");
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
  }
  loaded_.insert(module);
  return HandleOf(module);
}

FARPROC Modules::FindFunction(HMODULE handle, const char* name) {
  auto module = handles_.find(handle);
  if (module == handles_.end()) {
    Fail("GetProcAddress is given a module handle that the library did not get");
    return nullptr;
  }
  std::pair<std::string, std::string> key{module->second, name};
  const Declaration* declaration = declarations::Find(key.first, key.second);
  if (missingFunctions_.count(key) != 0 ||
      (declaration != nullptr && declaration->IsAbsentByDefault() && provided_.count(key) == 0)) {
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  if (declaration == nullptr) {
    Fail("the library looks for " + key.first + "!" + key.second +
         ", which no line of tests/rig/tables/*.cpp declares");
    SetLastError(ERROR_PROC_NOT_FOUND);
    return nullptr;
  }
  return reinterpret_cast<FARPROC>(
      reinterpret_cast<uintptr_t>(declaration->IsUntouched() ? declaration->Real() : declaration->Thunk()));
}

void Modules::Install() {
  rig_.On<::DisableThreadLibraryCalls>([](HMODULE) { return TRUE; });
  rig_.On<::GetModuleHandleA>([this](const char* name) { return Find(name); });
  rig_.On<::GetModuleHandleW>(
      [this](const wchar_t* name) { return Find(name == nullptr ? nullptr : ToUtf8(name).c_str()); });
  rig_.On<::LoadLibraryA>([this](const char* name) { return Load(name); });
  rig_.On<::LoadLibraryW>([this](const wchar_t* name) { return Load(ToUtf8(name)); });
  rig_.On<::FreeLibrary>([](HMODULE) { return TRUE; });
  rig_.On<::GetProcAddress>([this](HMODULE module, const char* name) { return FindFunction(module, name); });
}

TIME_ZONE_INFORMATION Clock::DefaultZone() {
  TIME_ZONE_INFORMATION zone = {};
  zone.Bias = -60;
  zone.DaylightBias = -60;
  return zone;
}

void Clock::Install() {
  rig_.On<::GetLocalTime>([this](SYSTEMTIME* out) { *out = local; });
  rig_.On<::GetSystemTime>([this](SYSTEMTIME* out) { *out = utc; });
  rig_.On<::GetTimeZoneInformation>([this](TIME_ZONE_INFORMATION* out) {
    *out = zone;
    return zoneId;
  });
  rig_.On<::GetTickCount>([this] { return ticks; });
  rig_.On<::Sleep>([this](DWORD milliseconds) { ticks += milliseconds; });
  rig_.On<::GetVersion>([this] { return version; });
  rig_.On<::GetVersionExA>([this](OSVERSIONINFOA* out) {
    if (out->dwOSVersionInfoSize != sizeof(OSVERSIONINFOA) &&
        out->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXA)) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    DWORD size = out->dwOSVersionInfoSize;
    std::memset(out, 0, size);
    *out = versionInfo;
    out->dwOSVersionInfoSize = size;
    return TRUE;
  });
}

void Desktop::Install() {
  rig_.On<::MessageBoxA>([this](HWND, const char* text, const char* title, UINT type) {
    boxes.push_back({text == nullptr ? "" : text, title == nullptr ? "" : title, type});
    return IDOK;
  });
}

void ErrorMode::Install() {
  rig_.On<::SetErrorMode>([this](UINT wanted) { return std::exchange(mode, wanted); });
}

void ErrorMode::Check() const {
  if (mode != kInitial) {
    Fail("the error mode of the process was not restored: it is " + HexText(mode));
  }
}

}  // namespace rig
