// Owner types: one alias per kind of resource. Used everywhere a resource is held.
//
// An owner closes what it holds when it goes out of scope, once, and never an empty value. Where a resource
// is deliberately not given back, `release()` says so.
#pragma once

#include <windows.h>
// Behind windows.h, on which they build.
#include <lm.h>
#include <msi.h>
#include <msiquery.h>
#include <oleauto.h>

#include "util/heap.h"

/// The single owner of a resource. `Traits` names the resource's type (`Value`), the value that stands for
/// "nothing" (`kEmpty`) and how the resource is given back (`Close`).
template <typename Traits>
class Unique {
 public:
  /// The resource as the system's functions know it.
  using Value = typename Traits::Value;

  /// Holds nothing.
  Unique() = default;
  /// Takes ownership of `value`.
  explicit Unique(Value value) : value_(value) {}
  Unique(Unique&& other) : value_(other.release()) {}
  Unique& operator=(Unique&& other) {
    if (this != &other) reset(other.release());
    return *this;
  }
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() { reset(); }

  /// The resource, still owned.
  Value get() const { return value_; }
  /// Whether something is held.
  explicit operator bool() const { return value_ != Traits::Empty(); }
  /// Where a call stores the resource that it hands out. What was held before is given back first.
  ///
  /// The rule for every such call, here and in ComPtr: what a failing call leaves there belongs to nobody. It
  /// is neither used nor given back. So say right after the call, through `keep`, whether it succeeded:
  ///
  ///   if (!key.keep(RegOpenKeyExA(root, path, 0, access, key.put()) == ERROR_SUCCESS)) return;
  ///
  /// Only the size that a call asks for because its buffer is too small is an answer.
  Value* put() {
    reset();
    return &value_;
  }
  /// Keeps what a call stored at `put` if it `succeeded`; otherwise forgets it. Returns `succeeded`.
  bool keep(bool succeeded) {
    if (!succeeded) release();
    return succeeded;
  }
  /// Gives back what is held and takes ownership of `value`.
  void reset(Value value = Traits::Empty()) {
    if (value_ != Traits::Empty()) Traits::Close(value_);
    value_ = value;
  }
  /// Returns the resource and holds nothing any more: the caller owns it.
  Value release() {
    Value value = value_;
    value_ = Traits::Empty();
    return value;
  }

 private:
  Value value_ = Traits::Empty();
};

/// Traits of resources of a pointer type whose "nothing" is null and that `Closer` gives back.
template <typename Type, auto Closer>
struct NullableTraits {
  /// The held type.
  using Value = Type;
  /// The value that stands for nothing.
  static constexpr Value Empty() { return Value{}; }
  /// Gives `value` back.
  static void Close(Value value) { Closer(value); }
};

/// Traits of handles whose "nothing" is INVALID_HANDLE_VALUE and that `Closer` gives back.
template <auto Closer>
struct InvalidHandleTraits {
  /// The held type.
  using Value = HANDLE;
  /// The value that stands for nothing.
  static Value Empty() { return INVALID_HANDLE_VALUE; }
  /// Gives `value` back.
  static void Close(Value value) { Closer(value); }
};

/// Traits of a block of the process heap that holds `Type`s.
template <typename Type>
struct HeapTraits {
  /// The held type.
  using Value = Type*;
  /// The value that stands for nothing.
  static constexpr Value Empty() { return nullptr; }
  /// Gives `value` back.
  static void Close(Value value) { HeapFreeSafe(value); }
};

/// Traits of a counted object, given back through its own `Release`.
template <typename Type>
struct ObjectTraits {
  /// The held type.
  using Value = Type*;
  /// The value that stands for nothing.
  static constexpr Value Empty() { return nullptr; }
  /// Gives `value` back.
  static void Close(Value value) { value->ops.Release(value); }
};

/// Traits of a buffer that network management functions hand out. `NetApiBufferFree` is bound by name, so
/// the function that frees it travels with the type.
template <typename Type, auto Free>
struct NetworkBufferTraits {
  /// The held type.
  using Value = Type*;
  /// The value that stands for nothing.
  static constexpr Value Empty() { return nullptr; }
  /// Gives `value` back.
  static void Close(Value value) { Free(value); }
};

/// A block of the process heap.
template <typename Type>
using HeapBlock = Unique<HeapTraits<Type>>;
/// An 8-bit string on the process heap.
using HeapStringA = HeapBlock<char>;
/// A wide string on the process heap.
using HeapStringW = HeapBlock<wchar_t>;
/// A reference on a counted object.
template <typename Type>
using ObjectRef = Unique<ObjectTraits<Type>>;
/// A search started with FindFirstFileW.
using SearchHandle = Unique<InvalidHandleTraits<FindClose>>;
/// A file opened with CreateFile.
using FileHandle = Unique<InvalidHandleTraits<CloseHandle>>;
/// A process opened with OpenProcess.
using ProcessHandle = Unique<NullableTraits<HANDLE, CloseHandle>>;
/// An access token.
using TokenHandle = Unique<NullableTraits<HANDLE, CloseHandle>>;
/// An open registry key; predefined root keys are never held.
using RegistryKey = Unique<NullableTraits<HKEY, RegCloseKey>>;
/// The service manager or a service.
using ServiceHandle = Unique<NullableTraits<SC_HANDLE, CloseServiceHandle>>;
/// A module loaded with LoadLibrary.
using Module = Unique<NullableTraits<HMODULE, FreeLibrary>>;
/// A string made with SysAllocString.
using SystemString = Unique<NullableTraits<BSTR, SysFreeString>>;
/// An installer record.
using InstallerRecord = Unique<NullableTraits<MSIHANDLE, MsiCloseHandle>>;
/// Memory that the system hands out for LocalFree.
template <typename Type>
using LocalBlock = Unique<NullableTraits<Type*, LocalFree>>;
/// A network management buffer, freed through the late-bound function `Free`.
template <typename Type, auto Free>
using NetworkBuffer = Unique<NetworkBufferTraits<Type, Free>>;

/// The one copy of ReleaseInterface that is called from everywhere: there are many owners.
inline __attribute__((noinline)) void ReleaseInterfaceOutOfLine(IUnknown* object) {
  if (object) object->Release();
}

/// Gives one reference on a COM interface back; null is ignored. Where the compiler sees that it is null, as
/// it does of an owner that is still empty, no call is made.
inline void ReleaseInterface(IUnknown* object) {
  if (!__builtin_constant_p(object == nullptr) || object) ReleaseInterfaceOutOfLine(object);
}

/// A text for a method that only reads it: deliberately handed over as it stands, without the length that a
/// system string has in front. It stays the caller's.
inline BSTR AsItStands(const wchar_t* text) {
  return const_cast<BSTR>(text);
}

/// A reference on a COM interface.
template <typename Interface>
class ComPtr {
 public:
  /// Holds nothing.
  ComPtr() = default;
  /// Takes over one reference on `pointer`.
  explicit ComPtr(Interface* pointer) : pointer_(pointer) {}
  ComPtr(ComPtr&& other) : pointer_(other.release()) {}
  ComPtr& operator=(ComPtr&& other) {
    if (this != &other) reset(other.release());
    return *this;
  }
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ~ComPtr() { ReleaseInterface(pointer_); }

  /// The interface, still held.
  Interface* get() const { return pointer_; }
  /// Calls a method; something must be held.
  Interface* operator->() const { return pointer_; }
  /// Whether something is held.
  explicit operator bool() const { return pointer_ != nullptr; }
  /// Where a call stores the interface that it hands out, under the rule of Unique::put. What was held before
  /// is released first.
  Interface** put() {
    reset();
    return &pointer_;
  }
  /// The same for functions that take an untyped out pointer.
  void** putVoid() { return reinterpret_cast<void**>(put()); }
  /// Keeps what a call stored at `put` if its `result` is a success; otherwise forgets it. Returns whether it
  /// is a success.
  bool keep(HRESULT result) {
    if (FAILED(result)) release();
    return SUCCEEDED(result);
  }
  /// Releases what is held and takes over one reference on `pointer`.
  void reset(Interface* pointer = nullptr) {
    Interface* old = pointer_;
    pointer_ = pointer;
    ReleaseInterface(old);
  }
  /// Returns the interface and holds nothing any more: the caller owns the reference.
  Interface* release() {
    Interface* pointer = pointer_;
    pointer_ = nullptr;
    return pointer;
  }

 private:
  Interface* pointer_ = nullptr;
};

/// The length of a COM start: made from the result of CoInitializeEx, ends it when it was this start that
/// succeeded.
class ComScope {
 public:
  /// `started` is what CoInitializeEx returned.
  explicit ComScope(HRESULT started) : started_(started) {}
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
  ~ComScope() {
    if (SUCCEEDED(started_)) CoUninitialize();
  }

  /// Whether COM can be used: also when the thread runs it already in another mode.
  bool IsUsable() const { return SUCCEEDED(started_) || started_ == RPC_E_CHANGED_MODE; }

 private:
  HRESULT started_;
};

/// Keeps message boxes of the system (missing media, missing files) away for the length of a scope.
class ErrorModeGuard {
 public:
  /// Sets SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX.
  ErrorModeGuard() : previous_(SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX)) {}
  ErrorModeGuard(const ErrorModeGuard&) = delete;
  ErrorModeGuard& operator=(const ErrorModeGuard&) = delete;
  /// Restores the mode that was in force before.
  ~ErrorModeGuard() { SetErrorMode(previous_); }

 private:
  UINT previous_;
};
