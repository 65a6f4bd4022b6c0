// Memory in which every overrun and every use after free is caught. Used by the rig's heap answers and
// GuardedBuffer.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace rig {

/// Allocates blocks that end at a no-access page. Alignment can leave a few bytes between a block's end and
/// that page. These bytes and the bytes right before the block hold a canary that is checked when the block
/// is freed. A freed block becomes inaccessible, and its pages are used again only after a long queue of
/// others. For one thread only, like the library itself.
class GuardedHeap {
 public:
  /// The result of freeing a block.
  enum class FreeResult {
    kFreed,    ///< No fault.
    kOverrun,  ///< Freed, but bytes right after or right before the block were overwritten.
    kTwice,    ///< The block was freed before.
    kNotOurs,  ///< No block begins at this address.
  };

  /// The byte that fresh blocks are filled with.
  static constexpr unsigned char kRubbish = 0xCD;
  /// The byte around a block.
  static constexpr unsigned char kCanary = 0xA5;
  /// The default alignment of a block. It suits every object of the library.
  static constexpr size_t kAlignment = 8;

  /// Returns the heap of this process.
  static GuardedHeap& Get();

  /// Allocates a block of `size` bytes filled with rubbish; a block of 0 bytes must not be touched at all.
  /// It ends as near to the no-access page as `alignment` (a power of two) allows. Null if memory is
  /// exhausted.
  void* Allocate(size_t size, size_t alignment = kAlignment);
  /// Frees a block.
  FreeResult Free(void* block);
  /// Returns the size in bytes of a block in use, or -1 if no block begins at `block`.
  ptrdiff_t SizeOf(const void* block) const;
  /// Describes the place of an address ("2 bytes past the end of a block of 16 bytes"); empty outside this
  /// heap.
  std::string Describe(const void* address) const;

 private:
  /// How a slot is used.
  enum class State : uint8_t {
    kFresh,  ///< Never used.
    kUsed,   ///< Holds a block.
    kFreed,  ///< Held a block and is now inaccessible.
  };
  /// One slot and the block in it.
  struct Slot {
    unsigned char* block = nullptr;
    size_t size = 0;
    State state = State::kFresh;
  };
  /// A reserved range of equal slots. Each slot has some usable pages and one page that is never committed.
  struct Chunk {
    unsigned char* base = nullptr;
    size_t usable = 0;
    size_t used = 0;
    std::vector<Slot> slots;
    /// Returns the distance from one slot to the next, in bytes.
    size_t Stride() const;
  };
  /// A slot as chunk and index.
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

  /// Gets a writable slot of a class; false if memory is exhausted.
  bool TakeSlot(size_t sizeClass, Place& place);
  /// Reserves one more chunk for a class; false if memory is exhausted.
  bool AddChunk(size_t sizeClass);
  /// Returns the slot that an address lies in; `chunk` is null if it lies in none.
  Place Find(const void* address) const;
  /// True if the bytes around a slot's block are untouched.
  static bool CanariesHold(const Chunk& chunk, size_t index);

  std::vector<std::unique_ptr<Chunk>> chunks_;
  SizeClass classes_[kClasses];
};

}  // namespace rig
