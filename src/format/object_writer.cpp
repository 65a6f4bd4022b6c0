#include "format/object_writer.h"

#include "base/heap.h"
#include "format/text_writer.h"

namespace {

/// The conversion that is passed to objects, both for "O" and for "p{O}".
constexpr unsigned kObjectConversion = 'O';

/// Converts `length` units and writes them as a string.
void WriteConverted(Output* output, const wchar_t* text, uint32_t length, const Directive& directive) {
  constexpr size_t kBytesPerUnit = 4;
  HeapBlock<char> converted(static_cast<char*>(HeapAllocZero(length * kBytesPerUnit + 1)));
  if (!converted) return;
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), converted.get(),
                                        static_cast<int>(length * kBytesPerUnit), nullptr, nullptr);
  WriteText(output, converted.get(), static_cast<uint32_t>(bytes), directive.flags, directive.width);
}

/// Writes the object's text through the string writer.
void WriteChangedObject(Output* output, Object* object, int precision, const Directive& directive) {
  if (object->ops.Query) {
    unsigned length = kToTerminator;
    const UINT_PTR text =
        object->ops.Query(object, kQueryPrintableText, 0, &length, directive.afterLetter, kObjectConversion);
    if (text) {
      WriteText(output, reinterpret_cast<const char*>(text), length, directive.flags, directive.width);
      return;
    }
  }
  unsigned length = 0;
  if (object->ops.CopyText) {
    length = object->ops.CopyText(object, nullptr, 0, precision, directive.afterLetter, kObjectConversion);
  }
  if (length == 0) {
    WriteText(output, "", 0, directive.flags, directive.width);
    return;
  }
  HeapBlock<char> copy(static_cast<char*>(HeapAllocZero(length)));
  if (!copy) return;
  const unsigned copied =
      object->ops.CopyText(object, copy.get(), length, precision, directive.afterLetter, kObjectConversion);
  WriteText(output, copy.get(), copied < length ? copied : length, directive.flags, directive.width);
}

}  // namespace

void WriteWideText(Output* output, const wchar_t* text, const Directive& directive) {
  if (!text) return;
  uint32_t length = directive.inputLength;
  if (length == kToTerminator) {
    length = 0;
    while (text[length]) ++length;
  }
  WriteConverted(output, text, length, directive);
}

void WriteWideCharacter(Output* output, uint32_t character, const Directive& directive) {
  constexpr uint32_t kFirstSupplementary = 0x10000;
  constexpr uint32_t kLastCodePoint = 0x10FFFF;
  constexpr wchar_t kReplacement = 0xFFFD;
  wchar_t units[2] = {static_cast<wchar_t>(character), 0};
  uint32_t length = 1;
  if (character > kLastCodePoint) {
    units[0] = kReplacement;
  } else if (character >= kFirstSupplementary) {
    const uint32_t rest = character - kFirstSupplementary;
    units[0] = static_cast<wchar_t>(0xD800 | rest >> 10);
    units[1] = static_cast<wchar_t>(0xDC00 | (rest & 0x3FF));
    length = 2;
  }
  WriteConverted(output, units, length, directive);
}

void WriteObject(Output* output, Object* object, const Directive& directive) {
  if (!object) {
    if (directive.text) {
      WriteText(output, directive.text, directive.textLength, directive.flags, directive.width);
    }
    return;
  }
  const int precision = directive.precision == kNoPrecision ? -1 : static_cast<int>(directive.precision);
  if (directive.flags & (kTextModifiers | kPlus | kLeft)) {
    WriteChangedObject(output, object, precision, directive);
    return;
  }
  if (!object->ops.CopyText || output->room == 0) return;
  const uint32_t room =
      directive.width != 0 && directive.width < output->room ? directive.width : output->room;
  const unsigned written =
      object->ops.CopyText(object, output->at, room, precision, directive.afterLetter, kObjectConversion);
  output->Advance(written < room ? written : room);
}
