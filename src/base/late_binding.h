// Functions that a system may lack, bound by name. Used by everything that calls such a function.
//
// A function that is called for as long as the process lives is a LateFunction of a LateModule. The module's
// rule says how the module is found; the function is declared with the value that a call returns if the
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
//                without the two in the middle once the module is kept
//
// A module that is loaded for one job is held in a Module, which frees it at the end of the scope:
//
//   Module setupLibrary(LoadLate("SETUPAPI"));
//   auto* installSection = FindFunction<InstallHinfSection>(setupLibrary.get(), "InstallHinfSectionA");
#pragma once

#include <stdint.h>

#include "base/windows_owners.h"

/// How a module of late-bound functions is found, and whether a look-up that failed is repeated.
enum class LateRule : uint8_t {
  kLoaded,      ///< only if the process has loaded it: it is never loaded for the function's sake
  kLoadedOnce,  ///< like kLoaded, but a function is looked up only once in the life of the process
  kLoadOnce,    ///< loaded for each function, once; kept if it has the function, otherwise freed
  kKept,        ///< loaded unless the process has it, and kept for all functions that are found in it
};

/// A module in which functions are found by name.
struct LateModule {
  /// A module that is found by its 8-bit name, with or without ".dll".
  constexpr LateModule(const char* moduleName, LateRule moduleRule)
      : name(moduleName), handle(nullptr), rule(moduleRule) {}
  /// A module that is found by its wide name, with or without ".dll": one with the rule kKept.
  explicit constexpr LateModule(const wchar_t* moduleName)
      : wideName(moduleName), handle(nullptr), rule(LateRule::kKept) {}

  union {
    const char* name;         ///< the name, unless the rule is kKept
    const wchar_t* wideName;  ///< the name if the rule is kKept
  };
  HMODULE handle;  ///< the module once it is found, if the rule is kKept; never freed
  LateRule rule;   ///< how the module is found
};

/// A function of a module, and its address once it is found.
struct LateEntry {
  /// The function that `lateModule` exports as `exportedName`, letter by letter; not looked up yet.
  constexpr LateEntry(LateModule* lateModule, const char* exportedName)
      : module(lateModule), name(exportedName), function(nullptr), isFinal(false) {}

  LateModule* module;  ///< where the function is looked up
  const char* name;    ///< the exported name
  FARPROC function;    ///< null until it is bound
  bool isFinal;        ///< true if there is no further look-up
};

extern "C" {

/// Returns the function of `entry`. Looks it up first if it is not bound yet and the module's rule allows.
/// Null if the module or the function is missing. No message box of the system appears.
FARPROC BindLate(LateEntry* entry);

/// Loads the module `name` and returns it, or null; no message box of the system appears. The caller frees it
/// with FreeLibrary (or holds it in a Module).
HMODULE LoadLate(const char* name);

}  // extern "C"

/// A looked-up function under its real type.
template <typename Signature>
Signature* FunctionAs(FARPROC function) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(function));
}

/// Returns the function that `module` exports as `name`, or null if it is missing; null also if `module` is.
template <typename Signature>
Signature* FindFunction(HMODULE module, const char* name) {
  return module ? FunctionAs<Signature>(GetProcAddress(module, name)) : nullptr;
}

template <typename Signature>
class LateFunction;

/// A late-bound function that is called like the function itself. `constexpr`, so that it needs no static
/// initialiser.
template <typename Result, typename... Arguments>
class LateFunction<Result(Arguments...)> : LateEntry {
 public:
  /// Declares the function that `lateModule` exports as `exportedName`; a call returns `missing` if it is not
  /// there.
  constexpr LateFunction(LateModule* lateModule, const char* exportedName, Result missing)
      : LateEntry(lateModule, exportedName), missing_(missing) {}

  /// True if the function is there.
  bool IsAvailable() { return BindLate(this) != nullptr; }

  /// Calls the function, or returns the value of a missing one.
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

  /// Calls the function if it is there.
  void operator()(Arguments... arguments) {
    FARPROC found = BindLate(this);
    if (found) FunctionAs<void(Arguments...)>(found)(arguments...);
  }
};
