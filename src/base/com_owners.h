// Owners of COM interfaces and system strings, and the scope of a COM start. Used by everything that talks to
// COM objects.
#pragma once

#include <windows.h>
// After windows.h, on which it builds.
#include <oleauto.h>

#include "base/owner.h"

/// A string made with SysAllocString.
using SystemString = Unique<NullableTraits<BSTR, SysFreeString>>;

/// The one copy of ReleaseInterface that is called from everywhere: there are many owners.
inline __attribute__((noinline)) void ReleaseInterfaceOutOfLine(IUnknown* object) {
  if (object) object->Release();
}

/// Releases one reference on a COM interface; null is ignored. Makes no call if the compiler sees that it is
/// null, as in an owner that is still empty.
inline void ReleaseInterface(IUnknown* object) {
  if (!__builtin_constant_p(object == nullptr) || object) ReleaseInterfaceOutOfLine(object);
}

/// A text for a method that only reads it: passed as it is, on purpose, without the length in front that a
/// system string has. It stays the caller's.
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
  /// True if something is held.
  explicit operator bool() const { return pointer_ != nullptr; }
  /// Where a call stores the interface that it returns, under the rule of Unique::put. Releases what was held
  /// before.
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
  /// Returns the interface and holds nothing afterwards: the caller owns the reference.
  Interface* release() {
    Interface* pointer = pointer_;
    pointer_ = nullptr;
    return pointer;
  }

 private:
  Interface* pointer_ = nullptr;
};

/// The scope of a COM start: takes the result of CoInitializeEx, and ends COM if that start succeeded.
class ComScope {
 public:
  /// `started` is what CoInitializeEx returned.
  explicit ComScope(HRESULT started) : started_(started) {}
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
  ~ComScope() {
    if (SUCCEEDED(started_)) CoUninitialize();
  }

  /// True if COM can be used; also if the thread runs it already in another mode.
  bool IsUsable() const { return SUCCEEDED(started_) || started_ == RPC_E_CHANGED_MODE; }

 private:
  HRESULT started_;
};
