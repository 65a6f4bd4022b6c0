#include "format/text_writer.h"

namespace {

uint32_t TextLength(const char* text) {
  uint32_t length = 0;
#pragma clang loop unroll(disable) vectorize(disable)
  while (text[length]) ++length;
  return length;
}

bool HasZeroByte(const char* text, uint32_t length) {
#pragma clang loop unroll(disable) vectorize(disable)
  for (uint32_t i = 0; i < length; ++i) {
    if (text[i] == 0) return true;
  }
  return false;
}

/// The text of WriteText, as the context of PutWholeText.
struct WholeText {
  const char* text;
  uint32_t length;
};

void PutWholeText(TextSink* sink, const void* context) {
  const auto* whole = static_cast<const WholeText*>(context);
  sink->Put(whole->text, whole->length);
}

}  // namespace

void Output::Put(const char* text, uint32_t count) {
  if (count > room) count = room;
  if (at) CopyShort(at, text, count);
  Advance(count);
}

void Output::Fill(char byte, uint64_t count) {
  const uint32_t fitting = count > room ? room : static_cast<uint32_t>(count);
  if (at) FillShort(at, byte, fitting);
  Advance(fitting);
}

void WritePadded(Output* output, const char* text, uint32_t length, uint32_t flags, uint32_t width) {
  const uint32_t padding = width > length ? width - length : 0;
  const uint32_t before = flags & kLeft ? 0 : padding;
  const char pad = flags & kZero ? '0' : ' ';
  if (!output->at || uint64_t{length} + padding > output->room) {
    output->Fill(pad, before);
    output->Put(text, length);
    output->Fill(' ', padding - before);
    return;
  }
  char* at = output->at;
  FillShort(at, pad, before);
  CopyShort(at + before, text, length);
  FillShort(at + before + length, ' ', padding - before);
  output->at = at + padding + length;
  output->room -= padding + length;
}

void WriteText(Output* output, const char* text, uint32_t length, uint32_t flags, uint32_t width) {
  if ((flags & (kTextModifiers | kPlus)) == 0) {
    if (length == kToTerminator) {
      if (width == 0) {
        CopyRun<0>(&output->at, &output->room, text);
        return;
      }
      WritePadded(output, text, TextLength(text), flags, width);
      return;
    }
    if (!HasZeroByte(text, length)) {
      WritePadded(output, text, length, flags, width);
      return;
    }
  }
  const WholeText whole{text, length};
  WriteComposed(output, PutWholeText, &whole, flags, width);
}

void WriteModified(Output* output, const char* text, uint32_t length, uint32_t flags, uint32_t width) {
  const WholeText whole{text, length};
  WriteComposed(output, PutWholeText, &whole, flags & ~static_cast<uint32_t>(kPlus), width);
}

void WriteComposed(Output* output, TextSource source, const void* context, uint32_t flags, uint32_t width) {
  constexpr uint32_t kUnlimited = 0xFFFFFFFF;
  Output measured{nullptr, kUnlimited};
  TextSink measuring(&measured, flags);
  source(&measuring, context);
  uint64_t length = kUnlimited - measured.room;

  const bool isWrapped = measuring.HasMarkup() && ChooseEscape(flags) == TextEscape::kCdata;
  if (isWrapped) length += kCdataOpeningLength + kCdataClosingLength;
  const uint64_t padding = width > length ? width - length : 0;
  const bool padsLeft = !(flags & kLeft);
  if (isWrapped) {
    // If the wrapper does not fit whole, neither the text nor its padding is written.
    const uint64_t needed = kCdataOpeningLength + kCdataClosingLength + (padsLeft ? padding : 0);
    if (needed > output->room) return;
  }

  if (padsLeft) output->Fill(flags & kZero ? '0' : ' ', padding);
  if (isWrapped) {
    output->Put(kCdataOpening, kCdataOpeningLength);
    output->room -= kCdataClosingLength;
  }
  TextSink sink(output, flags);
  source(&sink, context);
  if (isWrapped) {
    output->room += kCdataClosingLength;
    output->Put(kCdataClosing, kCdataClosingLength);
  }
  if (!padsLeft && !sink.Full()) output->Fill(' ', padding);
}
