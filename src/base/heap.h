// The process heap and the common half of every counted object. Used by everything that allocates.
#pragma once

#include <stddef.h>

#include "base/object.h"
#include "base/owner.h"

extern "C" {

/// Returns a zeroed block of `size` bytes from the process heap, or null. The caller frees it with
/// HeapFreeSafe (or holds it in a HeapBlock).
void* HeapAllocZero(size_t size);

/// Grows `block` to `size` bytes, the added bytes zeroed, and returns the block, which may have moved; a
/// null block is allocated. On failure the old block is freed and null returned, so that the caller never
/// keeps a stale pointer.
void* HeapReAllocOrFree(void* block, size_t size);

/// Frees a block of the process heap; null is ignored.
void HeapFreeSafe(void* block);

/// The common `Retain`: takes one more reference and returns the object; null stays null.
Object* RefRetain(Object* object);

/// The common `Release`: gives one reference back; with the last one the slots `Retain` and `Release` are
/// cleared and the object's block is freed. Null is ignored.
void RefRelease(Object* object);

}  // extern "C"

/// Where HeapNew constructs an object.
struct HeapPlace {
  void* block;  ///< a block that is large enough
};
/// Constructs an object in a block that is there already.
inline void* operator new(size_t, HeapPlace place) noexcept {
  return place.block;
}

/// Returns a new default-constructed `Type` in a block of the process heap, or null when memory lacks. The
/// caller gives it back with HeapDelete.
template <typename Type>
Type* HeapNew() {
  void* block = HeapAllocZero(sizeof(Type));
  return block ? new (HeapPlace{block}) Type() : nullptr;
}

/// Destroys what HeapNew made; null is ignored.
template <typename Type>
void HeapDelete(Type* object) {
  if (!object) return;
  object->~Type();
  HeapFreeSafe(object);
}

/// Traits of a block of the process heap that holds `Type`s.
template <typename Type>
struct HeapTraits {
  /// The held type.
  using Value = Type*;
  /// The value that means nothing.
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
