// Functions that a system may lack, bound by name at first use. Used by everything that calls such a
// function.
//
// A function is declared once, where it is used, with its module, its binding rule and the value that a
// missing function yields:
//
//   constinit LateFunction<decltype(IsWow64Process)> isWow64Process{"KERNEL32", "IsWow64Process",
//                                                                   BindingRule::kAlreadyLoaded, FALSE};
//
// The cache is process-wide; a function that was not found is looked for again at the next use, unless its
// rule says once. A module that is loaded for one job and freed behind it is a LateModule. Functions that
// share a module whose handle is kept with them are KeptFunctions of a KeptModule:
//
//   constinit KeptModule netapi32{L"NETAPI32"};
//   constinit KeptFunction<decltype(NetUserDel)> netUserDel{&netapi32, "NetUserDel", kNoFunction};
#pragma once

#include "base/windows_owners.h"

/// How the module of a late-bound function is found.
enum class BindingRule {
  kAlreadyLoaded,      ///< only when the process has loaded it: it is never loaded for the function's sake
  kAlreadyLoadedOnce,  ///< like kAlreadyLoaded, but looked for only once in the life of the process
  /// Loaded at the first use and kept if it has the function, else freed again; never tried a second time.
  kLoadOnce,
};

/// Where a late-bound function is found, and the function once it is.
struct LateEntry {
  const char* module;  ///< the module's name, with or without ".dll"
  const char* name;    ///< the exported name, letter by letter
  BindingRule rule;    ///< how the module is found
  FARPROC function;    ///< null until it is bound
  bool isTried;        ///< whether a look-up has been made
};

/// A module whose handle is kept for the functions found in it.
struct KeptModule {
  const wchar_t* name;  ///< the module's name, with or without ".dll"
  HMODULE handle;       ///< null until it is found; never freed
};

extern "C" {

/// Returns `*function`, or where that is null, the function that `module` exports as `name`, which is then
/// kept there. The module is the one that the process has loaded already or else is loaded, and never freed.
/// Null when the module or the name is missing; the next call then looks again. No message box of the system
/// appears meanwhile.
FARPROC BindKept(KeptModule* module, const char* name, FARPROC* function);

/// Returns the function of `entry`, looked up when it is not bound yet and its rule allows, or null when the
/// module or the name is missing. No message box of the system appears meanwhile.
FARPROC BindLate(LateEntry* entry);

/// Loads the module `name` and returns it, or null; no message box of the system appears meanwhile. The
/// caller frees it with FreeLibrary (or holds it in a Module).
HMODULE LoadLate(const char* name);

}  // extern "C"

/// A looked-up function under its real type.
template <typename Signature>
Signature* FunctionAs(FARPROC function) {
  return reinterpret_cast<Signature*>(reinterpret_cast<void*>(function));
}

template <typename Signature>
class LateFunction;

/// A late-bound function that is called like the function itself. `constexpr`, so that it needs no static
/// initialiser.
template <typename Result, typename... Arguments>
class LateFunction<Result(Arguments...)> {
 public:
  /// Declares the function; `missing` is what a call yields when the function is not there.
  constexpr LateFunction(const char* module, const char* name, BindingRule rule, Result missing)
      : entry_{module, name, rule, nullptr, false}, missing_(missing) {}

  /// Whether the function is there.
  bool IsAvailable() { return BindLate(&entry_) != nullptr; }

  /// Calls the function, or returns the value of a missing one.
  Result operator()(Arguments... arguments) {
    FARPROC function = BindLate(&entry_);
    if (!function) return missing_;
    return FunctionAs<Result(Arguments...)>(function)(arguments...);
  }

 private:
  LateEntry entry_;
  Result missing_;
};

template <typename Signature>
class KeptFunction;

/// A function of a kept module that is called like the function itself. `constexpr`, so that it needs no
/// static initialiser.
template <typename Result, typename... Arguments>
class KeptFunction<Result(Arguments...)> {
 public:
  /// Declares the function that `module` exports as `name`; `missing` is what a call yields when it is not
  /// there.
  constexpr KeptFunction(KeptModule* module, const char* name, Result missing)
      : module_(module), name_(name), function_(nullptr), missing_(missing) {}

  /// Calls the function, or returns the value of a missing one.
  Result operator()(Arguments... arguments) {
    FARPROC function = BindKept(module_, name_, &function_);
    if (!function) return missing_;
    return FunctionAs<Result(Arguments...)>(function)(arguments...);
  }

 private:
  KeptModule* module_;
  const char* name_;
  FARPROC function_;
  Result missing_;
};

/// A module that is loaded for one job and freed at the end of the scope.
class LateModule {
 public:
  /// Loads the module; see LoadLate.
  explicit LateModule(const char* name) : module_(LoadLate(name)) {}

  /// The function exported as `name`, of the type `Signature`, or null when the module or the name is
  /// missing.
  template <typename Signature>
  Signature* Find(const char* name) const {
    if (!module_) return nullptr;
    return FunctionAs<Signature>(GetProcAddress(module_.get(), name));
  }

 private:
  Module module_;
};
