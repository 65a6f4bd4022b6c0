#include "rig/guarded_heap.h"

#include <algorithm>
#include <cstring>

namespace rig {
namespace {

constexpr size_t kPage = 4096;
// The number of watched bytes right before a block.
constexpr size_t kFrontCanary = 32;
// The approximate address space of a chunk, in bytes.
constexpr size_t kChunkBytes = size_t{32} << 20;
// The number of pages of freed blocks that stay inaccessible before the oldest is used again (per size
// class).
constexpr size_t kRestingPages = 2048;

size_t ClassOf(size_t size) {
  size_t pages = (size + kFrontCanary + kPage - 1) / kPage;
  size_t sizeClass = 0;
  while ((size_t{1} << sizeClass) < pages) {
    ++sizeClass;
  }
  return sizeClass;
}

std::string Bytes(size_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

size_t GuardedHeap::Chunk::Stride() const {
  return usable + kPage;
}

GuardedHeap& GuardedHeap::Get() {
  static GuardedHeap heap;
  return heap;
}

bool GuardedHeap::AddChunk(size_t sizeClass) {
  auto chunk = std::make_unique<Chunk>();
  chunk->usable = kPage << sizeClass;
  size_t count = std::max<size_t>(kChunkBytes / chunk->Stride(), 4);
  void* base = VirtualAlloc(nullptr, count * chunk->Stride(), MEM_RESERVE, PAGE_NOACCESS);
  if (base == nullptr) {
    return false;
  }
  chunk->base = static_cast<unsigned char*>(base);
  chunk->slots.resize(count);
  classes_[sizeClass].current = chunk.get();
  chunks_.push_back(std::move(chunk));
  return true;
}

bool GuardedHeap::TakeSlot(size_t sizeClass, Place& place) {
  SizeClass& pool = classes_[sizeClass];
  size_t restingLimit = std::max<size_t>(kRestingPages >> sizeClass, 8);
  DWORD before = 0;
  if (pool.resting.size() > restingLimit) {
    place = pool.resting.front();
    pool.resting.pop_front();
    unsigned char* start = place.chunk->base + place.index * place.chunk->Stride();
    return VirtualProtect(start, place.chunk->usable, PAGE_READWRITE, &before) != FALSE;
  }
  if (pool.current == nullptr || pool.current->used == pool.current->slots.size()) {
    if (!AddChunk(sizeClass)) {
      return false;
    }
  }
  place = {pool.current, pool.current->used};
  unsigned char* start = place.chunk->base + place.index * place.chunk->Stride();
  if (VirtualAlloc(start, place.chunk->usable, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
    return false;
  }
  ++pool.current->used;
  return true;
}

void* GuardedHeap::Allocate(size_t size, size_t alignment) {
  size_t sizeClass = ClassOf(size);
  Place place;
  if (sizeClass >= kClasses || !TakeSlot(sizeClass, place)) {
    return nullptr;
  }
  unsigned char* start = place.chunk->base + place.index * place.chunk->Stride();
  unsigned char* end = start + place.chunk->usable;
  auto address = reinterpret_cast<uintptr_t>(end - size) & ~(alignment - 1);
  auto* block = reinterpret_cast<unsigned char*>(address);
  std::memset(block - kFrontCanary, kCanary, kFrontCanary);
  std::memset(block, kRubbish, size);
  std::memset(block + size, kCanary, static_cast<size_t>(end - (block + size)));
  place.chunk->slots[place.index] = {block, size, State::kUsed};
  return block;
}

bool GuardedHeap::CanariesHold(const Chunk& chunk, size_t index) {
  const Slot& slot = chunk.slots[index];
  const unsigned char* end = chunk.base + index * chunk.Stride() + chunk.usable;
  auto intact = [](unsigned char byte) { return byte == kCanary; };
  return std::all_of(slot.block - kFrontCanary, slot.block, intact) &&
         std::all_of(const_cast<const unsigned char*>(slot.block) + slot.size, end, intact);
}

GuardedHeap::Place GuardedHeap::Find(const void* address) const {
  auto* byte = static_cast<const unsigned char*>(address);
  for (const auto& chunk : chunks_) {
    if (byte >= chunk->base && byte < chunk->base + chunk->Stride() * chunk->slots.size()) {
      return {chunk.get(), static_cast<size_t>(byte - chunk->base) / chunk->Stride()};
    }
  }
  return {};
}

GuardedHeap::FreeResult GuardedHeap::Free(void* block) {
  Place place = Find(block);
  if (place.chunk == nullptr || place.chunk->slots[place.index].block != block) {
    return FreeResult::kNotOurs;
  }
  Slot& slot = place.chunk->slots[place.index];
  if (slot.state != State::kUsed) {
    return FreeResult::kTwice;
  }
  bool intact = CanariesHold(*place.chunk, place.index);
  slot.state = State::kFreed;
  DWORD before = 0;
  VirtualProtect(place.chunk->base + place.index * place.chunk->Stride(), place.chunk->usable, PAGE_NOACCESS,
                 &before);
  classes_[ClassOf(slot.size)].resting.push_back(place);
  return intact ? FreeResult::kFreed : FreeResult::kOverrun;
}

ptrdiff_t GuardedHeap::SizeOf(const void* block) const {
  Place place = Find(block);
  if (place.chunk == nullptr) {
    return -1;
  }
  const Slot& slot = place.chunk->slots[place.index];
  return slot.block == block && slot.state == State::kUsed ? static_cast<ptrdiff_t>(slot.size) : -1;
}

std::string GuardedHeap::Describe(const void* address) const {
  Place place = Find(address);
  if (place.chunk == nullptr) {
    return {};
  }
  const Slot& slot = place.chunk->slots[place.index];
  if (slot.state == State::kFresh) {
    return "in the guarded heap, where no block has been yet";
  }
  auto* byte = static_cast<const unsigned char*>(address);
  std::string block =
      std::string(slot.state == State::kFreed ? "a freed" : "a") + " block of " + Bytes(slot.size);
  if (byte < slot.block) {
    return Bytes(static_cast<size_t>(slot.block - byte)) + " before " + block;
  }
  if (byte < slot.block + slot.size) {
    return "at offset " + std::to_string(byte - slot.block) + " of " + block;
  }
  return Bytes(static_cast<size_t>(byte - (slot.block + slot.size))) + " past the end of " + block;
}

}  // namespace rig
