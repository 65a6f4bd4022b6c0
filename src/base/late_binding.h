// Functions that may be missing from a system, bound by name. Used by everything that calls such a function.
//
// A function that may be called until the process ends is a LateFunction of a LateModule. The rule of the
// module says how the module is found. The function is declared with the value that a call returns if the
// function is missing:
//
//   constinit LateModule kernel32{"KERNEL32", LateRule::kLoaded};
//   constinit LateFunction<decltype(IsWow64Process)> isWow64Process{&kernel32, "IsWow64Process", FALSE};
//
// Each rule has its own calls, in this order:
//
//   kLoaded      SetErrorMode, GetModuleHandleA, GetProcAddress, SetErrorMode
//   kLoadedOnce  the same
//   kLoadOnce    SetErrorMode, LoadLibraryA, SetErrorMode, GetProcAddress; if that fails, FreeLibrary
//   kKept        SetErrorMode, GetModuleHandleW, if that fails LoadLibraryW, GetProcAddress, SetErrorMode;
//                without GetModuleHandleW and LoadLibraryW once the module is kept
//
// A module that is loaded for one job is held in a Module, which frees it at the end of the scope:
//
//   Module setupLibrary(LoadLate("SETUPAPI"));
//   auto* installSection = FindFunction<InstallHinfSection>(setupLibrary.get(), "InstallHinfSectionA");
#pragma once

#include <stdint.h>

#include "base/windows_owners.h"

/// How a module of late-bound functions is found, and whether a failed look-up is repeated.
enum class LateRule : uint8_t {
  kLoaded,      ///< only if the process has loaded it: this library never loads it
  kLoadedOnce,  ///< like kLoaded, but each function is looked up only once in the life of the process
  kLoadOnce,    ///< loaded once for each function; kept if it has the function, otherwise freed
  kKept,        ///< loaded unless the process already has it, and kept for all of its functions
};

/// A module in which functions are found by name.
struct LateModule {
  /// A module found by its 8-bit name, with or without ".dll".
  constexpr LateModule(const char* moduleName, LateRule moduleRule)
      : name(moduleName), handle(nullptr), rule(moduleRule) {}
  /// A module found by its wide name, with or without ".dll"; its rule is kKept.
  explicit constexpr LateModule(const wchar_t* moduleName)
      : wideName(moduleName), handle(nullptr), rule(LateRule::kKept) {}

  union {
    const char* name;         ///< the name, unless the rule is kKept
    const wchar_t* wideName;  ///< the name if the rule is kKept
  };
  HMODULE handle;  ///< the module once it is found, if the rule is kKept (never freed); otherwise null
  LateRule rule;   ///< how the module is found
};

/// A function of a module, and its address once found.
struct LateEntry {
  /// The function that `lateModule` exports as `exportedName` (case matters); not looked up yet.
  constexpr LateEntry(LateModule* lateModule, const char* exportedName)
      : module(lateModule), name(exportedName), function(nullptr), isFinal(false) {}

  LateModule* module;  ///< where the function is looked up
  const char* name;    ///< the exported name
  FARPROC function;    ///< null until it is bound
  bool isFinal;        ///< true if it is not looked up again
};

extern "C" {

/// Returns the function of `entry`, or null if the module or the function is missing. Looks it up first if it
/// is not bound yet and the rule of the module allows it. No message box of Windows appears.
FARPROC BindLate(LateEntry* entry);

/// Loads the module `name` and returns it, or null. No message box of Windows appears. The caller frees it
/// with FreeLibrary (or holds it in a Module).
HMODULE LoadLate(const char* name);

}  // extern "C"

/// Casts a looked-up function to its real type.
template <typename Signature>
Signature* FunctionAs(FARPROC function) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(function));
}

/// Returns the function that `module` exports as `name`; null if it is missing or if `module` is null.
template <typename Signature>
Signature* FindFunction(HMODULE module, const char* name) {
  return module ? FunctionAs<Signature>(GetProcAddress(module, name)) : nullptr;
}

template <typename Signature>
class LateFunction;

/// A late-bound function that is called like the function itself. Its constructor is `constexpr`, so that it
/// needs no static initialiser.
template <typename Result, typename... Arguments>
class LateFunction<Result(Arguments...)> : LateEntry {
 public:
  /// Declares the function that `lateModule` exports as `exportedName`; if it is missing, a call returns
  /// `missing`.
  constexpr LateFunction(LateModule* lateModule, const char* exportedName, Result missing)
      : LateEntry(lateModule, exportedName), missing_(missing) {}

  /// True if the function was found.
  bool IsAvailable() { return BindLate(this) != nullptr; }

  /// Calls the function, or returns the value declared for a missing one.
  Result operator()(Arguments... arguments) {
    FARPROC found = BindLate(this);
    return found ? FunctionAs<Result(Arguments...)>(found)(arguments...) : missing_;
  }

 private:
  Result missing_;
};

/// A late-bound function without a result: a call does nothing if it is missing.
template <typename... Arguments>
class LateFunction<void(Arguments...)> : LateEntry {
 public:
  /// Declares the function that `lateModule` exports as `exportedName`.
  constexpr LateFunction(LateModule* lateModule, const char* exportedName)
      : LateEntry(lateModule, exportedName) {}

  /// Calls the function if it was found.
  void operator()(Arguments... arguments) {
    FARPROC found = BindLate(this);
    if (found) FunctionAs<void(Arguments...)>(found)(arguments...);
  }
};
