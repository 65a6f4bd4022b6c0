// The header that every counted object of the library begins with. Used by paths/path (the path value),
// by the directory walker, and by the format engine, which prints any object through it.
#pragma once

#include <windows.h>

#include "base/owner.h"

/// A 32-bit code from four characters, the first one in the lowest byte, so that in memory the four bytes
/// read as written: FourCharCode("\\:*/") is 0x2F2A3A5C.
constexpr DWORD FourCharCode(const char (&text)[5]) {
  return static_cast<DWORD>(static_cast<unsigned char>(text[0])) |
         static_cast<DWORD>(static_cast<unsigned char>(text[1])) << 8 |
         static_cast<DWORD>(static_cast<unsigned char>(text[2])) << 16 |
         static_cast<DWORD>(static_cast<unsigned char>(text[3])) << 24;
}

/// Selector of `Object::Operations::Query` with which the format engine asks for printable text.
constexpr DWORD kQueryPrintableText = FourCharCode("pntr");

/// The common header. Derived objects put their own fields behind it.
struct Object {
  /// The operations, in slot order. They are carried in the object itself, so that a caller releases an
  /// object through the object; any slot but the first two may be null, which means "not offered".
  struct Operations {
    /// Takes one more reference on `object` and returns it; null stays null.
    Object* (*Retain)(Object* object);
    /// Gives one reference back; the last one frees the object. Null is ignored.
    void (*Release)(Object* object);
    /// Orders two objects of the same type: -1, 0 or 1.
    int (*Compare)(Object* a, Object* b);
    /// Writes the object's text, UTF-8 and without a terminator, into `buffer`, at most `room` bytes, and
    /// returns the bytes written; with a null buffer returns the bytes that the whole text needs.
    /// `precision` is the directive's (negative when absent), `position` the format text behind the
    /// conversion letter, `conversion` the letter itself; an object ignores what it has no use for.
    unsigned (*CopyText)(Object* object, char* buffer, unsigned room, int precision, const char* position,
                         unsigned conversion);
    /// Answers the question `selector`. For kQueryPrintableText, `argument` is 0, `recordOrLength` an
    /// `unsigned*` that receives the length in bytes, and the answer a `const char*` owned by the object
    /// (not necessarily terminated) or null. Other selectors are the object type's own. Unknown
    /// selectors are answered with 0.
    UINT_PTR (*Query)(Object* object, DWORD selector, UINT_PTR argument, void* recordOrLength,
                      const char* position, unsigned conversion);
  };

  /// 1 after creation; changed only with atomic increments and decrements.
  volatile LONG refCount;
  /// Four characters that name the object's type.
  DWORD typeTag;
  /// This object's operations.
  Operations ops;
};

/// Traits of a counted object, released through its own `Release`.
template <typename Type>
struct ObjectTraits {
  /// The held type.
  using Value = Type*;
  /// The value that means nothing.
  static constexpr Value Empty() { return nullptr; }
  /// Releases `value`.
  static void Close(Value value) { value->ops.Release(value); }
};

/// A reference on a counted object.
template <typename Type>
using ObjectRef = Unique<ObjectTraits<Type>>;
