// The process heap and the last error.

#include <malloc.h>

#include "image.h"
#include "require.h"
#include "world.h"

namespace {

// Larger requests fail, as on a machine without that much memory.
constexpr SIZE_T kLargestBlock = SIZE_T{64} << 20;

void* const kHeap = reinterpret_cast<void*>(0x10);

HANDLE WINAPI AnswerGetProcessHeap() {
  return kHeap;
}

LPVOID WINAPI AnswerHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
  REQUIRE(heap == kHeap, "HeapAlloc is called with another heap");
  if (MustFail() || size > kLargestBlock) return nullptr;
  void* block = NewBlock(Kind::kBlock, size);
  if (flags & HEAP_ZERO_MEMORY) memset(block, 0, size);
  return block;
}

// Growing always moves the block.
LPVOID WINAPI AnswerHeapReAlloc(HANDLE heap, DWORD flags, LPVOID block, SIZE_T size) {
  REQUIRE(heap == kHeap, "HeapReAlloc is called with another heap");
  NeedHeld(Kind::kBlock, block);
  if (MustFail() || size > kLargestBlock) return nullptr;
  const SIZE_T before = malloc_usable_size(block);
  void* grown = NewBlock(Kind::kBlock, size);
  memcpy(grown, block, std::min(before, size));
  if ((flags & HEAP_ZERO_MEMORY) && size > before)
    memset(static_cast<char*>(grown) + before, 0, size - before);
  FreeBlock(Kind::kBlock, block);
  return grown;
}

BOOL WINAPI AnswerHeapFree(HANDLE heap, DWORD, LPVOID block) {
  REQUIRE(heap == kHeap, "HeapFree is called with another heap");
  FreeBlock(Kind::kBlock, block);
  return TRUE;
}

HLOCAL WINAPI AnswerLocalFree(HLOCAL block) {
  if (block) FreeBlock(Kind::kLocalBlock, block);
  return nullptr;
}

DWORD WINAPI AnswerGetLastError() {
  return world.error;
}

void WINAPI AnswerSetLastError(DWORD error) {
  world.error = error;
}

UINT WINAPI AnswerSetErrorMode(UINT mode) {
  return std::exchange(world.mode, mode);
}

BOOL WINAPI AnswerDisableThreadLibraryCalls(HMODULE) {
  return TRUE;
}

const Answers kMemory{
    ANSWER(DisableThreadLibraryCalls, AnswerDisableThreadLibraryCalls),
    ANSWER(GetLastError, AnswerGetLastError),
    ANSWER(GetProcessHeap, AnswerGetProcessHeap),
    ANSWER(HeapAlloc, AnswerHeapAlloc),
    ANSWER(HeapFree, AnswerHeapFree),
    ANSWER(HeapReAlloc, AnswerHeapReAlloc),
    ANSWER(LocalFree, AnswerLocalFree),
    ANSWER(SetErrorMode, AnswerSetErrorMode),
    ANSWER(SetLastError, AnswerSetLastError),
};

}  // namespace
