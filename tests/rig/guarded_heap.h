// Memory whose every overrun and late use is caught. Used by the rig's heap answers and GuardedBuffer.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace rig {

/// Gives blocks that end at a no-access page. The few bytes between a block's end and that page (there
/// because of the alignment) and the bytes right before the block hold a canary that is checked when the
/// block is freed. A freed block stays unreadable, and its pages are used again only after a
/// long queue of others. One thread only, as the library itself.
class GuardedHeap {
 public:
  /// The result of freeing a block.
  enum class FreeResult {
    kFreed,    ///< All is well.
    kOverrun,  ///< Freed, but bytes right after or right before the block were overwritten.
    kTwice,    ///< The block was freed before.
    kNotOurs,  ///< No block begins at this address.
  };

  /// The byte that fresh blocks are filled with.
  static constexpr unsigned char kRubbish = 0xCD;
  /// The byte around a block.
  static constexpr unsigned char kCanary = 0xA5;
  /// The alignment of a block when the caller names none. Every object of the library gets along with it.
  static constexpr size_t kAlignment = 8;

  /// The heap of this process.
  static GuardedHeap& Get();

  /// A block of `size` bytes (0 gives a block that must not be touched at all), filled with rubbish; ends as
  /// near to the no-access page as `alignment` (a power of two) lets it. Null when memory is exhausted.
  void* Allocate(size_t size, size_t alignment = kAlignment);
  /// Frees a block.
  FreeResult Free(void* block);
  /// The size in bytes of a block that is in use, or -1 when none begins at `block`.
  ptrdiff_t SizeOf(const void* block) const;
  /// The place of an address, in words ("2 bytes behind a block of 16 bytes"); empty outside this heap.
  std::string Describe(const void* address) const;

 private:
  /// What a slot is used for.
  enum class State : uint8_t {
    kFresh,  ///< Never used.
    kUsed,   ///< Holds a block.
    kFreed,  ///< Held one, and is unreadable.
  };
  /// One slot and the block in it.
  struct Slot {
    unsigned char* block = nullptr;
    size_t size = 0;
    State state = State::kFresh;
  };
  /// One reserved stretch of equal slots, each of some pages to use and one that is never committed.
  struct Chunk {
    unsigned char* base = nullptr;
    size_t usable = 0;
    size_t used = 0;
    std::vector<Slot> slots;
    /// The distance from one slot to the next, in bytes.
    size_t Stride() const;
  };
  /// A slot's address in terms of the tables.
  struct Place {
    Chunk* chunk = nullptr;
    size_t index = 0;
  };
  /// The slots of one size.
  struct SizeClass {
    Chunk* current = nullptr;
    std::deque<Place> resting;
  };

  /// Slots of 1, 2, 4 ... pages.
  static constexpr size_t kClasses = 16;

  /// Gets a writable slot of a class; false when memory is exhausted.
  bool TakeSlot(size_t sizeClass, Place& place);
  /// Reserves one more chunk for a class; false when memory is exhausted.
  bool AddChunk(size_t sizeClass);
  /// The slot that an address lies in; without a chunk when it lies in none.
  Place Find(const void* address) const;
  /// Whether the bytes around a slot's block are untouched.
  static bool CanariesHold(const Chunk& chunk, size_t index);

  std::vector<std::unique_ptr<Chunk>> chunks_;
  SizeClass classes_[kClasses];
};

}  // namespace rig
