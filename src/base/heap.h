// The process heap, and the reference counting of objects. Used by all code that allocates.
#pragma once

#include <stddef.h>

#include "base/object.h"
#include "base/owner.h"

extern "C" {

/// Returns a zeroed block of `size` bytes from the process heap, or null. The caller frees it with
/// HeapFreeSafe (or holds it in a HeapBlock).
void* HeapAllocZero(size_t size);

/// Grows `block` to `size` bytes, zeroes the added bytes, and returns the block, which may have moved.
/// Allocates a new block if `block` is null. On failure frees the old block and returns null, so that the
/// caller never keeps a stale pointer.
void* HeapReAllocOrFree(void* block, size_t size);

/// Frees a block of the process heap; null is ignored.
void HeapFreeSafe(void* block);

/// The common `Retain`: adds one reference and returns the object; null stays null.
Object* RefRetain(Object* object);

/// The common `Release`: drops one reference. When the last one is dropped, clears the slots `Retain` and
/// `Release` and frees the object's block. Null is ignored.
void RefRelease(Object* object);

}  // extern "C"

/// The place in which HeapNew constructs an object.
struct HeapPlace {
  void* block;  ///< a block that is large enough
};
/// Constructs an object in an existing block.
inline void* operator new(size_t, HeapPlace place) noexcept {
  return place.block;
}

/// Returns a new default-constructed `Type` in a block of the process heap, or null if out of memory. The
/// caller releases it with HeapDelete.
template <typename Type>
Type* HeapNew() {
  void* block = HeapAllocZero(sizeof(Type));
  return block ? new (HeapPlace{block}) Type() : nullptr;
}

/// Destroys and frees an object made by HeapNew; null is ignored.
template <typename Type>
void HeapDelete(Type* object) {
  if (!object) return;
  object->~Type();
  HeapFreeSafe(object);
}

/// Traits of a block of the process heap that holds `Type`s.
template <typename Type>
struct HeapTraits {
  /// The type of the owned pointer.
  using Value = Type*;
  /// The value of an empty owner: null.
  static constexpr Value Empty() { return nullptr; }
  /// Releases `value`.
  static void Close(Value value) { HeapFreeSafe(value); }
};

/// A block of the process heap.
template <typename Type>
using HeapBlock = Unique<HeapTraits<Type>>;
/// An 8-bit string on the process heap.
using HeapStringA = HeapBlock<char>;
/// A wide string on the process heap.
using HeapStringW = HeapBlock<wchar_t>;
