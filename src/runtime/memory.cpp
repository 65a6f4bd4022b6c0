// The four memory primitives to which the compiler itself generates calls.

#include <stddef.h>
#include <stdint.h>

namespace {

// A word anywhere in memory, exempt from the rules of alignment and aliasing.
struct __attribute__((packed, may_alias)) Word {
  uint64_t bits;
};

void CopyWord(void* to, const void* from) {
  *static_cast<Word*>(to) = *static_cast<const Word*>(from);
}

}  // namespace

extern "C" {

void* memcpy(void* target, const void* source, size_t size) {
  char* to = static_cast<char*>(target);
  const char* from = static_cast<const char*>(source);
  for (; size >= sizeof(Word); size -= sizeof(Word), to += sizeof(Word), from += sizeof(Word)) {
    CopyWord(to, from);
  }
  while (size--) *to++ = *from++;
  return target;
}

void* memmove(void* target, const void* source, size_t size) {
  // Compared as numbers: the two pointers may belong to different objects.
  if (reinterpret_cast<uintptr_t>(target) <= reinterpret_cast<uintptr_t>(source)) {
    return memcpy(target, source, size);
  }
  char* to = static_cast<char*>(target) + size;
  const char* from = static_cast<const char*>(source) + size;
  for (; size >= sizeof(Word); size -= sizeof(Word)) {
    to -= sizeof(Word);
    from -= sizeof(Word);
    CopyWord(to, from);
  }
  while (size--) *--to = *--from;
  return target;
}

void* memset(void* target, int value, size_t size) {
  char* to = static_cast<char*>(target);
  const Word pattern = {static_cast<unsigned char>(value) * 0x0101010101010101ull};
  for (; size >= sizeof(Word); size -= sizeof(Word), to += sizeof(Word)) CopyWord(to, &pattern);
  while (size--) *to++ = static_cast<char>(value);
  return target;
}

int memcmp(const void* left, const void* right, size_t size) {
  const unsigned char* a = static_cast<const unsigned char*>(left);
  const unsigned char* b = static_cast<const unsigned char*>(right);
  for (; size; --size, ++a, ++b) {
    if (*a != *b) return *a - *b;
  }
  return 0;
}

}  // extern "C"
