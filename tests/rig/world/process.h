// The parts of a world that belong to the process: heap, modules, error mode, clock, message boxes.
#pragma once

#include <windows.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// The process heap: every block guarded (see GuardedHeap).
class Heap {
 public:
  /// The part of the world that belongs to this rig.
  explicit Heap(Rig& rig);
  ~Heap();
  Heap(const Heap&) = delete;
  Heap& operator=(const Heap&) = delete;
  /// Sends the heap functions here.
  void Install();
  /// Frees the blocks that the library still holds; the ledger forgets everything.
  void Reclaim();
  /// Gives the library `size` bytes of memory of another kind (kLocalMemory, kTaskMemory, kNetBuffer ...),
  /// filled from `bytes` if not null; the library must free it with that kind's own function.
  void* Give(const Kind& kind, size_t size, const void* bytes = nullptr);
  /// Frees what Give gave; null is allowed.
  static void TakeBack(void* memory);

 private:
  /// Answers HeapReAlloc.
  void* Grow(DWORD flags, void* block, size_t size);
  Rig& rig_;
};

/// The modules of the process and the functions that the library finds by name. A module is present when the
/// tables declare a function of it; a declared function is found unless it is declared absent. Anything
/// undeclared fails the test.
class Modules {
 public:
  /// The part of the world that belongs to this rig.
  explicit Modules(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// The module is in the process already (KERNEL32, NTDLL, USER32, ADVAPI32 and MSI always are).
  void Loaded(const std::string& module) { loaded_.insert(declarations::ModuleName(module)); }
  /// Loading the module fails with `error`.
  void Missing(const std::string& module, DWORD error = ERROR_MOD_NOT_FOUND) {
    missing_[declarations::ModuleName(module)] = error;
  }
  /// The module is there, but does not export the function.
  void MissingFunction(const std::string& module, const std::string& name) {
    missingFunctions_.insert({declarations::ModuleName(module), name});
  }
  /// The module exports the function although it is declared absent by default.
  void Provide(const std::string& module, const std::string& name) {
    provided_.insert({declarations::ModuleName(module), name});
  }

 private:
  /// The handle of a module.
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

/// The clock and the version of the system, as the test sets them.
class Clock {
 public:
  /// The part of the world that belongs to this rig.
  explicit Clock(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// What GetLocalTime gives: 15 November 2026, 11:30:45.
  SYSTEMTIME local = {2026, 11, 0, 15, 11, 30, 45, 0};
  /// What GetSystemTime gives: one hour earlier.
  SYSTEMTIME utc = {2026, 11, 0, 15, 10, 30, 45, 0};
  /// What GetTimeZoneInformation gives: UTC plus one hour.
  TIME_ZONE_INFORMATION zone = DefaultZone();
  /// What GetTimeZoneInformation returns.
  DWORD zoneId = TIME_ZONE_ID_STANDARD;
  /// What GetTickCount gives; Sleep adds to it and does not sleep.
  DWORD ticks = 1000000;
  /// What GetVersion gives: 10.0.19044.
  DWORD version = 0x4A64000A;
  /// What GetVersionExA gives.
  OSVERSIONINFOA versionInfo = {sizeof(OSVERSIONINFOA), 10, 0, 19044, VER_PLATFORM_WIN32_NT, ""};

 private:
  /// UTC plus one hour, daylight time one more.
  static TIME_ZONE_INFORMATION DefaultZone();
  Rig& rig_;
};

/// The desktop: message boxes are noted and answered with OK.
class Desktop {
 public:
  /// One message box.
  struct Box {
    std::string text;   ///< Its text.
    std::string title;  ///< Its title.
    UINT type;          ///< Its buttons and icon, MB_OK ...
    bool operator==(const Box&) const = default;
  };
  /// The part of the world that belongs to this rig.
  explicit Desktop(Rig& rig) : rig_(rig) {}
  /// Sends its function here.
  void Install();
  /// The boxes that appeared, in order.
  std::vector<Box> boxes;

 private:
  Rig& rig_;
};

/// The error mode of the process, which must be at the end what it was at the start.
class ErrorMode {
 public:
  /// The part of the world that belongs to this rig.
  explicit ErrorMode(Rig& rig) : rig_(rig) {}
  /// Sends its function here.
  void Install();
  /// Fails the test when the mode was not restored.
  void Check() const;
  /// The mode now.
  UINT mode = kInitial;

 private:
  static constexpr UINT kInitial = 0x4000;
  Rig& rig_;
};

}  // namespace rig
