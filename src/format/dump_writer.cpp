#include "format/dump_writer.h"

#include "format/text_writer.h"

namespace {

constexpr char kCapitalDigits[] = "0123456789ABCDEF";
constexpr char kSmallDigits[] = "0123456789abcdef";

/// The 65th character pads the last group; the URL-safe alphabet has none.
constexpr char kStandardAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=";
constexpr char kUrlSafeAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr uint32_t kPaddingPlace = 64;

uint32_t DataLength(const uint8_t* data, uint32_t length) {
  if (length != kToTerminator) return length;
  length = 0;
  while (data[length]) ++length;
  return length;
}

struct HexDump {
  const uint8_t* data;
  uint32_t length;
  const char* digits;
  bool spaced;
};

void PutHexDump(TextSink* sink, const void* context) {
  const auto* dump = static_cast<const HexDump*>(context);
  for (uint32_t i = 0; i < dump->length && !sink->Full(); ++i) {
    const char piece[3] = {' ', dump->digits[dump->data[i] >> 4], dump->digits[dump->data[i] & 15]};
    const uint32_t skipped = dump->spaced && i > 0 ? 0 : 1;
    sink->Put(piece + skipped, sizeof piece - skipped);
  }
}

}  // namespace

void WriteHexDump(Output* output, const uint8_t* data, uint32_t length, bool capital,
                  const Directive& directive) {
  if (!data) return;
  const HexDump dump{data, DataLength(data, length), capital ? kCapitalDigits : kSmallDigits,
                     (directive.flags & kSpace) != 0};
  if (dump.length == 0) return;
  WriteComposed(output, PutHexDump, &dump, directive.flags & ~static_cast<uint32_t>(kPlus), directive.width);
}

void WriteBase64(Output* output, const uint8_t* data, uint32_t length, bool urlSafe) {
  if (!data) return;
  length = DataLength(data, length);
  if (!output->at) {
    const uint64_t needed = (uint64_t{length} + 2) / 3 * 4;
    output->Advance(needed < output->room ? static_cast<uint32_t>(needed) : output->room);
    return;
  }
  const char* alphabet = urlSafe ? kUrlSafeAlphabet : kStandardAlphabet;
  for (uint32_t i = 0; i < length && output->room != 0; i += 3) {
    const uint32_t left = length - i;
    const uint32_t second = left > 1 ? data[i + 1] : 0;
    const uint32_t third = left > 2 ? data[i + 2] : 0;
    const uint32_t bits = static_cast<uint32_t>(data[i]) << 16 | second << 8 | third;
    uint32_t places[4] = {bits >> 18, bits >> 12 & 63, bits >> 6 & 63, bits & 63};
    uint32_t count = 4;
    for (uint32_t place = left + 1; place < 4; ++place) {
      places[place] = kPaddingPlace;
      if (urlSafe) count = count < place ? count : place;
    }
    for (uint32_t place = 0; place < count; ++place) output->PutByte(alphabet[places[place]]);
  }
}

void WriteGuid(Output* output, const uint8_t* guid, const Directive& directive) {
  constexpr uint32_t kGuidLength = 36;
  constexpr uint32_t kGuidRoom = kGuidLength + 1;
  // The bytes in the order of their digits: the first three groups are little-endian numbers.
  constexpr uint8_t kOrder[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  if (!guid || output->room < kGuidRoom) return;
  char text[kGuidLength];
  char* at = text;
  for (uint32_t i = 0; i < sizeof kOrder; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *at++ = '-';
    const uint8_t byte = guid[kOrder[i]];
    *at++ = kCapitalDigits[byte >> 4];
    *at++ = kCapitalDigits[byte & 15];
  }
  WriteOwnText(output, text, kGuidLength, directive.flags, directive.width);
}
