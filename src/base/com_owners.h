// Owners of COM interfaces and system strings, and the scope of a COM initialisation. Used by everything that
// calls COM objects.
#pragma once

#include <windows.h>
// Needs windows.h before it.
#include <oleauto.h>

#include "base/owner.h"

/// A string allocated with SysAllocString.
using SystemString = Unique<NullableTraits<BSTR, SysFreeString>>;

/// Releases one reference. Out of line, so that the many owners share one copy.
inline __attribute__((noinline)) void ReleaseInterfaceOutOfLine(IUnknown* object) {
  if (object) object->Release();
}

/// Releases one reference to a COM interface; null is ignored. Makes no call if the compiler knows that it is
/// null, as in an owner that is still empty.
inline void ReleaseInterface(IUnknown* object) {
  if (!__builtin_constant_p(object == nullptr) || object) ReleaseInterfaceOutOfLine(object);
}

/// Casts a text for a method that only reads it. On purpose: the text has no length prefix, which a system
/// string has. The caller keeps it.
inline BSTR AsItStands(const wchar_t* text) {
  return const_cast<BSTR>(text);
}

/// A reference to a COM interface.
template <typename Interface>
class ComPtr {
 public:
  /// Holds nothing.
  ComPtr() = default;
  /// Takes over one reference to `pointer`.
  explicit ComPtr(Interface* pointer) : pointer_(pointer) {}
  ComPtr(ComPtr&& other) : pointer_(other.release()) {}
  ComPtr& operator=(ComPtr&& other) {
    if (this != &other) reset(other.release());
    return *this;
  }
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ~ComPtr() { ReleaseInterface(pointer_); }

  /// The interface; the owner keeps it.
  Interface* get() const { return pointer_; }
  /// Calls a method; something must be held.
  Interface* operator->() const { return pointer_; }
  /// True if something is held.
  explicit operator bool() const { return pointer_ != nullptr; }
  /// Returns the address at which a call stores an interface; the rule of Unique::put applies. Releases what
  /// was held before.
  Interface** put() {
    reset();
    return &pointer_;
  }
  /// Like put, for functions that take an untyped out pointer.
  void** putVoid() { return reinterpret_cast<void**>(put()); }
  /// Keeps what a call stored at `put` if `result` is a success; otherwise forgets it. Returns true on
  /// success.
  bool keep(HRESULT result) {
    if (FAILED(result)) release();
    return SUCCEEDED(result);
  }
  /// Releases what is held and takes over one reference to `pointer`.
  void reset(Interface* pointer = nullptr) {
    Interface* old = pointer_;
    pointer_ = pointer;
    ReleaseInterface(old);
  }
  /// Returns the interface and becomes empty: the caller then owns the reference.
  Interface* release() {
    Interface* pointer = pointer_;
    pointer_ = nullptr;
    return pointer;
  }

 private:
  Interface* pointer_ = nullptr;
};

/// The scope of a COM initialisation: uninitialises COM at its end if CoInitializeEx succeeded.
class ComScope {
 public:
  /// `started` is what CoInitializeEx returned.
  explicit ComScope(HRESULT started) : started_(started) {}
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
  ~ComScope() {
    if (SUCCEEDED(started_)) CoUninitialize();
  }

  /// True if COM can be used; also if the thread already runs it in another mode.
  bool IsUsable() const { return SUCCEEDED(started_) || started_ == RPC_E_CHANGED_MODE; }

 private:
  HRESULT started_;
};
