// Buffers that tests pass to the library. Used by unit and action tests.
#pragma once

#include <cstddef>
#include <string_view>

namespace rig {

/// A buffer of exactly the given size. The first byte after its end is inaccessible: reading or writing one
/// byte too far ends the test with a crash report. A fresh buffer is filled with GuardedHeap::kRubbish.
/// Bytes overwritten before its start are reported when it is destroyed.
class GuardedBuffer {
 public:
  /// Creates a buffer of `bytes` bytes.
  explicit GuardedBuffer(size_t bytes);
  ~GuardedBuffer();
  GuardedBuffer(GuardedBuffer&& other) noexcept;
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(GuardedBuffer&&) = delete;

  /// Returns a copy of `text`, by default with its terminator.
  static GuardedBuffer Of(std::string_view text, bool terminated = true);
  /// Does the same for wide text.
  static GuardedBuffer Of(std::wstring_view text, bool terminated = true);

  /// Returns the first byte; for another element type use `As<wchar_t>()`.
  char* Data() const { return static_cast<char*>(block_); }
  /// Returns the first byte as the first element of another type.
  template <class T>
  T* As() const {
    return static_cast<T*>(block_);
  }
  /// Returns the size in bytes.
  size_t Size() const { return size_; }
  /// Fills the whole buffer with one byte.
  void Fill(unsigned char byte);

 private:
  void* block_;
  size_t size_;
};

}  // namespace rig
