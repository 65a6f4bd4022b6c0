// Calls the library's internal operations by name. Used by the unit tests.
#pragma once

#include <windows.h>

#include "rig/crash.h"
#include "rig/library.h"

namespace rig {

/// Returns the address of an operation in the loaded library. Throws std::runtime_error if no library is
/// loaded or it does not export the name.
void* FindInternal(const char* name);

/// Finds an operation once per loaded library.
class InternalAddress {
 public:
  /// Names the operation; nothing is looked up yet.
  explicit constexpr InternalAddress(const char* name) : name_(name) {}
  /// Returns its address in the loaded library.
  void* Get() {
    if (generation_ != Library::Generation()) {
      address_ = FindInternal(name_);
      generation_ = Library::Generation();
    }
    return address_;
  }

 private:
  const char* name_;
  void* address_ = nullptr;
  unsigned generation_ = 0;
};

/// Calls an internal operation of the type `Function` (a function pointer type).
template <class Function>
class Internal;

template <class Result, class... Arguments>
class Internal<Result (*)(Arguments...)> {
 public:
  /// A pointer to the operation.
  using Type = Result (*)(Arguments...);
  /// Names the operation.
  explicit constexpr Internal(const char* name) : address_(name) {}
  /// Calls the operation. A crash fails the test with the place of the crash and throws LibraryCrash.
  Result operator()(Arguments... arguments) {
    Type function = Get();
    return CallGuarded([&] { return function(arguments...); });
  }
  /// Returns the operation's address, for tables of operations.
  Type Get() { return reinterpret_cast<Type>(address_.Get()); }

 private:
  InternalAddress address_;
};

template <class Result, class... Arguments>
class Internal<Result (*)(Arguments..., ...)> {
 public:
  /// A pointer to the operation.
  using Type = Result (*)(Arguments..., ...);
  /// Names the operation.
  explicit constexpr Internal(const char* name) : address_(name) {}
  /// Calls the operation with its variable arguments. A crash fails the test and throws LibraryCrash.
  template <class... Variable>
  Result operator()(Arguments... arguments, Variable... variable) {
    Type function = Get();
    return CallGuarded([&] { return function(arguments..., variable...); });
  }
  /// Returns the operation's address.
  Type Get() { return reinterpret_cast<Type>(address_.Get()); }

 private:
  InternalAddress address_;
};

}  // namespace rig

/// Makes `Name` a callable for the operation in the freshly loaded hxinternals.dll. Use it inside a named
/// namespace that also holds the tests, after including the header that declares the operation. The
/// unqualified name then finds this object. That also prevents argument-dependent lookup from finding the
/// declaration, which would not link.
#define HX_INTERNAL(Name)                                           \
  [[maybe_unused]] inline ::rig::Internal<decltype(&::Name)> Name { \
    #Name                                                           \
  }
