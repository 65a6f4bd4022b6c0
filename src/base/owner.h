// The owner template. Every resource is held by an owner: the headers beside the resource's functions have
// one alias for each kind.
//
// An owner releases what it holds when it goes out of scope, once, and never an empty value. Where a resource
// is not released on purpose, `release()` says so.
#pragma once

#include <windows.h>

/// The single owner of a resource. `Traits` names the resource's type (`Value`), the value that means
/// "nothing"
/// (`Empty()`) and how the resource is released (`Close`).
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
  /// True if something is held.
  explicit operator bool() const { return value_ != Traits::Empty(); }
  /// Where a call stores the resource that it returns. Releases what was held before.
  ///
  /// The rule for every such call, here and in ComPtr: what a failing call leaves there belongs to nobody. It
  /// is neither used nor released. So call `keep` right after it:
  ///
  ///   if (!key.keep(RegOpenKeyExA(root, path, 0, access, key.put()) == ERROR_SUCCESS)) return;
  ///
  /// One answer of a failing call is used: the size that it asks for because its buffer is too small.
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
  /// Returns the resource and holds nothing afterwards: the caller owns it.
  Value release() {
    Value value = value_;
    value_ = Traits::Empty();
    return value;
  }

 private:
  Value value_ = Traits::Empty();
};

/// Traits of resources of a pointer type whose "nothing" is null and that `Closer` releases.
template <typename Type, auto Closer>
struct NullableTraits {
  /// The held type.
  using Value = Type;
  /// The value that means nothing.
  static constexpr Value Empty() { return Value{}; }
  /// Releases `value`.
  static void Close(Value value) { Closer(value); }
};

/// Traits of handles whose "nothing" is INVALID_HANDLE_VALUE and that `Closer` releases.
template <auto Closer>
struct InvalidHandleTraits {
  /// The held type.
  using Value = HANDLE;
  /// The value that means nothing.
  static Value Empty() { return INVALID_HANDLE_VALUE; }
  /// Releases `value`.
  static void Close(Value value) { Closer(value); }
};
