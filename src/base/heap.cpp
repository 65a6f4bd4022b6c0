#include "base/heap.h"

void* HeapAllocZero(size_t size) {
  return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size);
}

void* HeapReAllocOrFree(void* block, size_t size) {
  if (!block) return HeapAllocZero(size);
  void* grown = HeapReAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, block, size);
  if (!grown) HeapFreeSafe(block);
  return grown;
}

void HeapFreeSafe(void* block) {
  if (block) HeapFree(GetProcessHeap(), 0, block);
}

Object* RefRetain(Object* object) {
  if (object) InterlockedIncrement(&object->refCount);
  return object;
}

void RefRelease(Object* object) {
  if (!object || InterlockedDecrement(&object->refCount) >= 1) return;
  object->ops.Retain = nullptr;
  object->ops.Release = nullptr;
  HeapFreeSafe(object);
}
