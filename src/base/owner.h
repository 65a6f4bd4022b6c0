// The owner template. An owner holds every resource: each header that declares a resource's functions has an
// alias for its kind.
//
// When an owner goes out of scope, it releases what it holds, once; an empty value is never released. Code
// that leaves a resource unreleased on purpose calls `release()`.
#pragma once

#include <windows.h>

/// The single owner of a resource. `Traits` gives the type of the resource (`Value`), the value that means
/// "nothing" (`Empty()`), and the function that releases it (`Close`).
template <typename Traits>
class Unique {
 public:
  /// The resource's type in the functions of Windows.
  using Value = typename Traits::Value;

  /// Holds nothing.
  Unique() = default;
  /// Takes ownership of `value`.
  explicit Unique(Value value) : value_(value) {}
  Unique(Unique&& other) : value_(other.release()) {}
  Unique& operator=(Unique&& other) {
    // Also right for the owner itself, which is empty when it takes the resource again.
    reset(other.release());
    return *this;
  }
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() { reset(); }

  /// The resource; the owner keeps it.
  Value get() const { return value_; }
  /// True if something is held.
  explicit operator bool() const { return value_ != Traits::Empty(); }
  /// Returns the address at which a call stores a resource. Releases what was held before.
  ///
  /// The rule for every such call, here and in ComPtr: nobody owns what a failing call stores there. It is
  /// neither used nor released. So call `keep` right after it:
  ///
  ///   if (!key.keep(RegOpenKeyExA(root, path, 0, access, key.put()) == ERROR_SUCCESS)) return;
  ///
  /// One result of a failing call is used: the size that it asks for if its buffer is too small.
  Value* put() {
    reset();
    return &value_;
  }
  /// Keeps what a call stored at `put` if it `succeeded`; otherwise forgets it. Returns `succeeded`.
  bool keep(bool succeeded) {
    if (!succeeded) release();
    return succeeded;
  }
  /// Releases what is held and takes ownership of `value`.
  void reset(Value value = Traits::Empty()) {
    if (value_ != Traits::Empty()) Traits::Close(value_);
    value_ = value;
  }
  /// Returns the resource and becomes empty: the caller then owns it.
  Value release() {
    Value value = value_;
    value_ = Traits::Empty();
    return value;
  }

 private:
  Value value_ = Traits::Empty();
};

/// Traits of a pointer type whose "nothing" is null. `Closer` releases the resource.
template <typename Type, auto Closer>
struct NullableTraits {
  /// The held type.
  using Value = Type;
  /// The value of an empty owner.
  static constexpr Value Empty() { return Value{}; }
  /// Releases `value`.
  static void Close(Value value) { Closer(value); }
};

/// Traits of handles whose "nothing" is INVALID_HANDLE_VALUE. `Closer` releases the handle.
template <auto Closer>
struct InvalidHandleTraits {
  /// The held type.
  using Value = HANDLE;
  /// The value of an empty owner.
  static Value Empty() { return INVALID_HANDLE_VALUE; }
  /// Releases `value`.
  static void Close(Value value) { Closer(value); }
};
