// The process: heap, modules, error mode, clock, message boxes. Parts of the world.
#pragma once

#include <windows.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// The process heap; every block is guarded (see GuardedHeap).
class Heap {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Heap(Rig& rig);
  ~Heap();
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;
  /// Routes the heap functions here.
  void Install();
  /// Frees the blocks that the library still holds, and clears the ledger.
  void Reclaim();
  /// Allocates `size` bytes of memory of another kind (kLocalMemory, kTaskMemory, kNetBuffer ...) for the
  /// library, filled from `bytes` if that is not null. The library must free it with that kind's own
  /// function.
  void* Give(const Kind& kind, size_t size, const void* bytes = nullptr);
  /// Frees memory that Give allocated; null is allowed.
  static void TakeBack(void* memory);

 private:
  /// Answers HeapReAlloc.
  void* Grow(DWORD flags, void* block, size_t size);
  Rig& rig_;
};

/// The modules of the process and the functions that the library finds by name. A module is present if the
/// tables declare a function of it. A declared function is found unless it is declared absent. Anything
/// undeclared fails the test.
class Modules {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Modules(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Marks the module as already loaded (KERNEL32, NTDLL, USER32, ADVAPI32 and MSI always are).
  void Loaded(const std::string& module) { loaded_.insert(declarations::ModuleName(module)); }
  /// Makes loading the module fail with `error`.
  void Missing(const std::string& module, DWORD error = ERROR_MOD_NOT_FOUND) {
    missing_[declarations::ModuleName(module)] = error;
  }
  /// Removes the function from the module's exports.
  void MissingFunction(const std::string& module, const std::string& name) {
    missingFunctions_.insert({declarations::ModuleName(module), name});
  }
  /// Makes the module export the function although it is declared absent by default.
  void Provide(const std::string& module, const std::string& name) {
    provided_.insert({declarations::ModuleName(module), name});
  }

 private:
  /// Returns the handle of a module.
  HMODULE HandleOf(const std::string& module);
  /// Answers GetModuleHandle.
  HMODULE Find(const char* path);
  /// Answers LoadLibrary.
  HMODULE Load(const std::string& path);
  /// Answers GetProcAddress.
  FARPROC FindFunction(HMODULE handle, const char* name);

  Rig& rig_;
  std::set<std::string> loaded_ = {"KERNEL32", "NTDLL", "USER32", "ADVAPI32", "MSI"};
  std::map<std::string, DWORD> missing_;
  std::set<std::pair<std::string, std::string>> missingFunctions_;
  std::set<std::pair<std::string, std::string>> provided_;
  std::map<HMODULE, std::string> handles_;
};

/// The clock and the system's version, as the test sets them.
class Clock {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Clock(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// The output of GetLocalTime: 15 November 2026, 11:30:45.
  SYSTEMTIME local = {2026, 11, 0, 15, 11, 30, 45, 0};
  /// The output of GetSystemTime: one hour earlier.
  SYSTEMTIME utc = {2026, 11, 0, 15, 10, 30, 45, 0};
  /// The output of GetTimeZoneInformation: UTC plus one hour.
  TIME_ZONE_INFORMATION zone = DefaultZone();
  /// The result of GetTimeZoneInformation.
  DWORD zoneId = TIME_ZONE_ID_STANDARD;
  /// The result of GetTickCount; Sleep adds to it and does not sleep.
  DWORD ticks = 1000000;
  /// The result of GetVersion: 10.0.19044.
  DWORD version = 0x4A64000A;
  /// The output of GetVersionExA.
  OSVERSIONINFOA versionInfo = {sizeof(OSVERSIONINFOA), 10, 0, 19044, VER_PLATFORM_WIN32_NT, ""};

 private:
  /// Returns UTC plus one hour, with one more in daylight time.
  static TIME_ZONE_INFORMATION DefaultZone();
  Rig& rig_;
};

/// The desktop: message boxes are recorded and answered with OK.
class Desktop {
 public:
  /// One message box.
  struct Box {
    std::string text;   ///< Its text.
    std::string title;  ///< Its title.
    UINT type;          ///< Its buttons and icon, MB_OK ...
    bool operator==(const Box&) const = default;
  };
  /// Creates the part of the world that belongs to this rig.
  explicit Desktop(Rig& rig) : rig_(rig) {}
  /// Routes the function of this part here.
  void Install();
  /// The boxes that appeared, in order.
  std::vector<Box> boxes;

 private:
  Rig& rig_;
};

/// The error mode of the process, which must be the same at the end as at the start.
class ErrorMode {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit ErrorMode(Rig& rig) : rig_(rig) {}
  /// Routes the function of this part here.
  void Install();
  /// Fails the test if the mode was not restored.
  void Check() const;
  /// The current mode.
  UINT mode = kInitial;

 private:
  static constexpr UINT kInitial = 0x4000;
  Rig& rig_;
};

}  // namespace rig
