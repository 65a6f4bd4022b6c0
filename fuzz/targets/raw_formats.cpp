// Any text as a format. Each argument is at once the address of a text, a wide text or an object, and, in its
// low half, a number of bytes that can be read there: whatever the format takes an argument for, reading it
// is allowed.

#include <sys/mman.h>

#include "base/object.h"
#include "format/format.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"

namespace {

constinit Operation<unsigned(char*, unsigned, const char*, const uint64_t*)> callFormat("FormatStringV");

// The low half of the zone's address is 0, so that the arguments, which are in its first part, are small
// numbers: the engine takes a length, a width or a precision from the low half. What is read from one as text
// of as many wide characters as that number says ends within the zone.
constexpr uintptr_t kZone = 0x490000000000;
constexpr size_t kArgumentPart = 0x400;
constexpr size_t kZoneSize = 0x4000;
static_assert(kZoneSize >= kArgumentPart * 3);

constexpr size_t kSlots = 64;

IMAGE_ABI unsigned CopyNothing(Object* object, char* buffer, unsigned room, int, const char*, unsigned) {
  if (!buffer) return static_cast<unsigned>(sizeof object->typeTag);
  const size_t count = std::min<size_t>(room, sizeof object->typeTag);
  memcpy(buffer, &object->typeTag, count);
  return static_cast<unsigned>(count);
}

// Returns the zone, filled with short texts.
uint8_t* NeedZone() {
  static uint8_t* const kPlace = [] {
    void* place = mmap(reinterpret_cast<void*>(kZone), kZoneSize, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    REQUIRE(place == reinterpret_cast<void*>(kZone), "the zone's addresses are not free");
    constexpr size_t kTextSize = 64;
    for (size_t at = 0; at < kZoneSize; at += kTextSize)
      memset(static_cast<uint8_t*>(place) + at, 'z', kTextSize - 2);
    return static_cast<uint8_t*>(place);
  }();
  return kPlace;
}

// True if a position in `format` is not that of a slot.
bool LeavesSlots(const std::string& format) {
  // The directives take at most three slots each.
  if (static_cast<size_t>(std::count(format.begin(), format.end(), '%')) * 3 >= kSlots / 2) return true;
  for (size_t at = 0; at < format.size(); ++at) {
    size_t digits = at;
    while (digits < format.size() && format[digits] >= '0' && format[digits] <= '9') ++digits;
    if (digits == at) continue;
    if (digits < format.size() && format[digits] == '$') {
      if (digits - at > 2 || strtoul(format.c_str() + at, nullptr, 10) > kSlots / 2) return true;
    }
    at = digits;
  }
  return false;
}

}  // namespace

void RunRawFormats(Data* data) {
  TakeFailure(data);
  const uint16_t size = data->Take<uint16_t>() % 512;
  if (data->Flag()) ChooseClock(data);
  constexpr size_t kArguments = 4;
  constexpr uint32_t kPlaces = 64;
  uint8_t* zone = NeedZone();
  uint64_t addresses[kArguments];
  for (size_t i = 0; i < kArguments; ++i) {
    // At an odd place, too, as texts are.
    const size_t offset = i * (kArgumentPart / kArguments) + data->Below(kPlaces);
    Object object{};
    object.refCount = data->Take<LONG>();
    object.typeTag = data->Take<DWORD>();
    object.ops.CopyText = reinterpret_cast<decltype(Object::Operations::CopyText)>(&CopyNothing);
    memset(zone + i * (kArgumentPart / kArguments), 'z', kPlaces + sizeof object);
    memcpy(zone + offset, &object, sizeof object);
    addresses[i] = kZone + offset;
  }
  std::string format = data->Rest();
  format.resize(strlen(format.c_str()));
  if (LeavesSlots(format)) return;

  uint64_t slots[kSlots];
  for (size_t i = 0; i < kSlots; ++i) slots[i] = addresses[i % kArguments];
  const char* text = GuardedText(format);
  const unsigned measured = callFormat(nullptr, 0, text, slots);
  char* buffer = static_cast<char*>(GuardedBuffer(size));
  const unsigned written = callFormat(buffer, size, text, slots);
  REQUIRE(size == 0 ? written == 0 : written < size, "%u bytes are written into %u", written, size);
  REQUIRE(size == 0 || buffer[written] == '\0', "a text of %u bytes is not terminated", written);
  REQUIRE(HasFailed() || written <= measured, "measured %u bytes, written %u", measured, written);
}
