// Buffers that tests hand to the library. Used by unit and action tests.
#pragma once

#include <cstddef>
#include <string_view>

namespace rig {

/// A buffer of exactly so many bytes; the first byte after its end is unreadable: writing or reading one
/// byte too far ends the test with a crash report. Fresh ones are filled with GuardedHeap::kRubbish. What
/// was written before its first byte is reported when it is destroyed.
class GuardedBuffer {
 public:
  /// A buffer of this many bytes.
  explicit GuardedBuffer(size_t bytes);
  ~GuardedBuffer();
  GuardedBuffer(GuardedBuffer&& other) noexcept;
  GuardedBuffer(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(const GuardedBuffer&) = delete;
  GuardedBuffer& operator=(GuardedBuffer&&) = delete;

  /// A copy of `text`, by default with its terminator.
  static GuardedBuffer Of(std::string_view text, bool terminated = true);
  /// The same for wide text.
  static GuardedBuffer Of(std::wstring_view text, bool terminated = true);

  /// The first byte; `As<wchar_t>()` for another element type.
  char* Data() const { return static_cast<char*>(block_); }
  /// The first byte as the first element of another type.
  template <class T>
  T* As() const {
    return static_cast<T*>(block_);
  }
  /// Size in bytes.
  size_t Size() const { return size_; }
  /// Fills the whole buffer with one byte.
  void Fill(unsigned char byte);

 private:
  void* block_;
  size_t size_;
};

}  // namespace rig
