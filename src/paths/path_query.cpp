#include "paths/path_query.h"

#include "base/heap.h"
#include "base/text.h"
#include "paths/path_node.h"

namespace {

constexpr size_t kFirstCapacity = 256;

// The fixed fields of an entry and the boundary to which entries are padded.
constexpr size_t kTagOffset = 4;
constexpr size_t kLengthOffset = 8;
constexpr size_t kTextOffset = 12;
constexpr size_t kAlignment = 4;

constexpr size_t EntrySize(size_t textLength) {
  return kTextOffset + (textLength + kAlignment - 1) / kAlignment * kAlignment;
}

// Store and Load use the processor's byte order, which is always little-endian. Big-endian values are swapped
// by the callers.
void Store(char* at, DWORD value) {
  CopyBytes(at, &value, sizeof value);
}

DWORD Load(const char* at) {
  DWORD value;
  CopyBytes(&value, at, sizeof value);
  return value;
}

UINT_PTR StorePath(PathObject* path, UINT_PTR identifier, RecordBuffer* buffer) {
  PathRef flat(PathFlatten(path));
  if (!flat || !buffer) return 0;
  size_t length = static_cast<size_t>(flat.get()->length);
  char* entry = RecordBufferAppend(buffer, EntrySize(length));
  if (!entry) return 0;
  Store(entry, static_cast<DWORD>(identifier));
  Store(entry + kTagOffset, kPathEntryTag);
  Store(entry + kLengthOffset, __builtin_bswap32(static_cast<DWORD>(length)));
  CopyBytes(entry + kTextOffset, flat.get()->text, length);
  return EntrySize(length);
}

UINT_PTR ReadPath(PathObject*, UINT_PTR identifier, RecordBuffer* buffer) {
  if (!buffer || buffer->position > buffer->size) return 0;
  size_t left = buffer->size - buffer->position;
  if (left < kTextOffset) return 0;
  const char* entry = buffer->bytes + buffer->position;
  if (Load(entry + kTagOffset) != kPathEntryTag) return 0;
  if (identifier && Load(entry) != identifier) return 0;
  size_t length = __builtin_bswap32(Load(entry + kLengthOffset));
  if (length > kMaxPathBytes || EntrySize(length) > left) return 0;
  PathObject* path = PathMake(nullptr, nullptr, static_cast<int>(length));
  if (!path) return 0;
  CopyBytes(path->text, entry + kTextOffset, length);
  buffer->position += EntrySize(length);
  return reinterpret_cast<UINT_PTR>(path);
}

// The questions that a path answers. The answer to any other selector is 0.
struct Question {
  DWORD selector;
  UINT_PTR (*answer)(PathObject* path, UINT_PTR argument, RecordBuffer* record);
};
constexpr Question kQuestions[] = {
    {kQueryStore, StorePath},
    {kQueryRead, ReadPath},
    {kQueryWalker, PathOfferWalker},
};

}  // namespace

char* RecordBufferAppend(RecordBuffer* buffer, size_t size) {
  if (size > buffer->capacity - buffer->size) {
    size_t needed;
    if (__builtin_add_overflow(buffer->size, size, &needed)) return nullptr;
    size_t capacity = buffer->capacity ? 2 * buffer->capacity : kFirstCapacity;
    if (capacity < needed) capacity = needed;
    // Not HeapReAllocOrFree: earlier entries must survive a failure.
    char* grown = static_cast<char*>(HeapAllocZero(capacity));
    if (!grown) return nullptr;
    CopyBytes(grown, buffer->bytes, buffer->size);
    HeapFreeSafe(buffer->bytes);
    buffer->bytes = grown;
    buffer->capacity = capacity;
  }
  char* appended = buffer->bytes + buffer->size;
  buffer->size += size;
  return appended;
}

void RecordBufferFree(RecordBuffer* buffer) {
  HeapFreeSafe(buffer->bytes);
  *buffer = {};
}

UINT_PTR PathQuery(Object* object, DWORD selector, UINT_PTR argument, void* record, const char*, unsigned) {
  if (!object) return 0;
  for (const Question& question : kQuestions) {
    if (question.selector == selector) {
      return question.answer(static_cast<PathObject*>(object), argument, static_cast<RecordBuffer*>(record));
    }
  }
  return 0;
}
