// The header with which every counted object of the library begins. Used by paths/path (the path value), the
// directory walker, and the format engine, which prints any object through it.
#pragma once

#include <windows.h>

#include "base/owner.h"

/// Packs four characters into a 32-bit code, the first one in the lowest byte, so that the four bytes in
/// memory read as written: FourCharCode("\\:*/") is 0x2F2A3A5C.
constexpr DWORD FourCharCode(const char (&text)[5]) {
  return static_cast<DWORD>(static_cast<unsigned char>(text[0])) |
         static_cast<DWORD>(static_cast<unsigned char>(text[1])) << 8 |
         static_cast<DWORD>(static_cast<unsigned char>(text[2])) << 16 |
         static_cast<DWORD>(static_cast<unsigned char>(text[3])) << 24;
}

/// Selector of `Object::Operations::Query` with which the format engine asks for an object's printable text.
constexpr DWORD kQueryPrintableText = FourCharCode("pntr");

/// The common header. Derived objects add their own fields after it.
struct Object {
  /// The operations, in slot order. The object itself holds them, so that a caller releases an object through
  /// the object. Any slot but the first two may be null, which means "not offered".
  struct Operations {
    /// Adds one reference to `object` and returns it; null stays null.
    Object* (*Retain)(Object* object);
    /// Drops one reference; dropping the last one frees the object. Null is ignored.
    void (*Release)(Object* object);
    /// Compares two objects of the same type: returns -1, 0 or 1.
    int (*Compare)(Object* a, Object* b);
    /// Writes the object's text, UTF-8 without a terminator, into `buffer`, at most `room` bytes, and returns
    /// the bytes written. With a null buffer returns the bytes of the whole text. `precision` is the one of
    /// the directive (negative if absent), `position` the format text after the conversion letter,
    /// `conversion` that letter. An object ignores what it does not need.
    unsigned (*CopyText)(Object* object, char* buffer, unsigned room, int precision, const char* position,
                         unsigned conversion);
    /// Answers the question `selector`. For kQueryPrintableText, `argument` is 0, `recordOrLength` is an
    /// `unsigned*` that receives the length in bytes, and the answer is a `const char*` owned by the object
    /// (possibly without a terminator) or null. Each object type defines its other selectors. The answer to
    /// an unknown selector is 0.
    UINT_PTR (*Query)(Object* object, DWORD selector, UINT_PTR argument, void* recordOrLength,
                      const char* position, unsigned conversion);
  };

  /// 1 after creation; changed only by atomic increments and decrements.
  volatile LONG refCount;
  /// Four characters that identify the object's type.
  DWORD typeTag;
  /// This object's operations.
  Operations ops;
};

/// Traits of a counted object, released through its own `Release`.
template <typename Type>
struct ObjectTraits {
  /// The held type.
  using Value = Type*;
  /// The value of an empty owner: null.
  static constexpr Value Empty() { return nullptr; }
  /// Releases `value`.
  static void Close(Value value) { value->ops.Release(value); }
};

/// A reference to a counted object.
template <typename Type>
using ObjectRef = Unique<ObjectTraits<Type>>;
