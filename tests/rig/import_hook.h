// Replaces one imported function of the loaded library. Used by tests that watch what an operation asks the
// system for, answer in its place, or make it fail.
#pragma once

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "rig/library.h"

namespace rig {

template <auto Function>
class ImportHook;

/// While it lives, every call that the loaded library makes of `Function` runs `body` instead. Hooks of one
/// function nest: `Next` calls the target that this hook replaced.
template <class Result, class... Arguments, Result(WINAPI* Function)(Arguments...)>
class ImportHook<Function> {
 public:
  /// The function's own type.
  using Type = Result(WINAPI*)(Arguments...);

  /// Replaces the import `name` with `body`. Throws std::runtime_error if the library does not import it.
  ImportHook(const char* name, std::function<Result(Arguments...)> body)
      : body_(std::move(body)), outer_(top_) {
    Library::Current()->ForEachImport([&](const Import& import) {
      if (import.name == name) import_ = import;
    });
    if (!import_.slot) throw std::runtime_error(std::string("the library does not import ") + name);
    next_ = reinterpret_cast<Type>(*import_.slot);
    top_ = this;
    Library::Patch(import_, reinterpret_cast<void*>(&Thunk));
  }
  ~ImportHook() {
    Library::Patch(import_, reinterpret_cast<void*>(next_));
    top_ = outer_;
  }
  ImportHook(const ImportHook&) = delete;
  ImportHook& operator=(const ImportHook&) = delete;

  /// Calls the function that the library would call without this hook.
  Result Next(Arguments... arguments) const { return next_(arguments...); }

 private:
  /// The function that the library calls.
  static Result WINAPI Thunk(Arguments... arguments) {
    // `Next` may reach the thunk of the enclosing hook.
    ImportHook* hook = top_;
    top_ = hook->outer_;
    if constexpr (std::is_void_v<Result>) {
      hook->body_(arguments...);
      top_ = hook;
    } else {
      Result result = hook->body_(arguments...);
      top_ = hook;
      return result;
    }
  }

  static inline ImportHook* top_ = nullptr;
  std::function<Result(Arguments...)> body_;
  ImportHook* outer_;
  Import import_;
  Type next_ = nullptr;
};

}  // namespace rig

/// Declares a hook of an imported function: HX_HOOK(hook, SetErrorMode, [&](UINT mode) { ... }).
#define HX_HOOK(variable, Function, ...) ::rig::ImportHook<&::Function> variable(#Function, __VA_ARGS__)
