#include "guarded.h"

#include <sys/mman.h>

#include "require.h"

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kStride = kMostGuarded + kPage;
constexpr size_t kPlaces = 96;

size_t used;

// Returns the end of a place: the address of its unreadable page.
char* EndOf(size_t place) {
  static char* const kArea = [] {
    void* area = mmap(nullptr, kStride * kPlaces, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    REQUIRE(area != MAP_FAILED, "no memory for guarded places");
    for (size_t i = 0; i < kPlaces; ++i) {
      mprotect(static_cast<char*>(area) + i * kStride + kMostGuarded, kPage, PROT_NONE);
    }
    return static_cast<char*>(area);
  }();
  return kArea + place * kStride + kMostGuarded;
}

}  // namespace

void ForgetGuarded() {
  used = 0;
}

void* GuardedBuffer(size_t size) {
  REQUIRE(size <= kMostGuarded, "a guarded place of %zu bytes is too large", size);
  REQUIRE(used < kPlaces, "too many guarded places");
  constexpr int kRubbish = 0xA5;
  void* buffer = EndOf(used++) - size;
  memset(buffer, kRubbish, size);
  return buffer;
}

char* GuardedBytes(std::string_view text) {
  void* place = GuardedBuffer(text.size());
  memcpy(place, text.data(), text.size());
  return static_cast<char*>(place);
}

char* GuardedText(std::string_view text) {
  char* place = static_cast<char*>(GuardedBuffer(text.size() + 1));
  memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  return place;
}

wchar_t* GuardedUnits(std::u16string_view text) {
  void* place = GuardedBuffer(text.size() * sizeof(char16_t));
  memcpy(place, text.data(), text.size() * sizeof(char16_t));
  return static_cast<wchar_t*>(place);
}

wchar_t* GuardedWide(std::u16string_view text) {
  wchar_t* place = static_cast<wchar_t*>(GuardedBuffer((text.size() + 1) * sizeof(wchar_t)));
  memcpy(place, text.data(), text.size() * sizeof(wchar_t));
  place[text.size()] = L'\0';
  return place;
}
