#include "rig/guarded_buffer.h"

#include <cstring>
#include <new>

#include "rig/failures.h"
#include "rig/guarded_heap.h"

namespace rig {

// Alignment 1 puts the very next byte out of bounds. A buffer of wide characters or structures is still
// aligned, because its size is a multiple of theirs.
GuardedBuffer::GuardedBuffer(size_t bytes) : block_(GuardedHeap::Get().Allocate(bytes, 1)), size_(bytes) {
  if (block_ == nullptr) {
    throw std::bad_alloc();
  }
}

GuardedBuffer::~GuardedBuffer() {
  if (block_ != nullptr && GuardedHeap::Get().Free(block_) != GuardedHeap::FreeResult::kFreed) {
    Fail("the bytes before a buffer of " + std::to_string(size_) + " bytes were overwritten");
  }
}

GuardedBuffer::GuardedBuffer(GuardedBuffer&& other) noexcept : block_(other.block_), size_(other.size_) {
  other.block_ = nullptr;
  other.size_ = 0;
}

GuardedBuffer GuardedBuffer::Of(std::string_view text, bool terminated) {
  GuardedBuffer buffer(text.size() + (terminated ? 1 : 0));
  std::memcpy(buffer.Data(), text.data(), text.size());
  if (terminated) {
    buffer.Data()[text.size()] = '\0';
  }
  return buffer;
}

GuardedBuffer GuardedBuffer::Of(std::wstring_view text, bool terminated) {
  GuardedBuffer buffer((text.size() + (terminated ? 1 : 0)) * sizeof(wchar_t));
  std::memcpy(buffer.Data(), text.data(), text.size() * sizeof(wchar_t));
  if (terminated) {
    buffer.As<wchar_t>()[text.size()] = L'\0';
  }
  return buffer;
}

void GuardedBuffer::Fill(unsigned char byte) {
  std::memset(block_, byte, size_);
}

}  // namespace rig
