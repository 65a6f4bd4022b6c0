// Conversions of paths: to one node, to wide text, to UTF-8 text.

#include <stdint.h>

#include "base/heap.h"
#include "base/object.h"
#include "base/text.h"
#include "paths/path_node.h"

namespace {

// The wide buffer of a path holds two units for each byte and for two more.
constexpr size_t kWideBytesPerByte = 4;
constexpr size_t kWideExtraBytes = 8;

// Widens `length` bytes at `text` to units at `wide`; false if not all are ASCII, and then some may already
// be widened.
bool WidenAscii(const char* text, size_t length, wchar_t* wide) {
  using Bytes = unsigned char __attribute__((vector_size(8)));
  using Units = uint16_t __attribute__((vector_size(16)));
  constexpr size_t kStep = sizeof(Bytes);
  constexpr uint64_t kHighBits = 0x8080808080808080;
  const auto widenStep = [text, wide](size_t at) {
    Bytes bytes;
    __builtin_memcpy(&bytes, text + at, sizeof bytes);
    Units units = __builtin_convertvector(bytes, Units);
    __builtin_memcpy(wide + at, &units, sizeof units);
    return (__builtin_bit_cast(uint64_t, bytes) & kHighBits) == 0;
  };
  if (length >= kStep) {
    for (size_t i = 0; i + kStep <= length; i += kStep) {
      if (!widenStep(i)) return false;
    }
    // The last step widens some bytes again; that is faster than single steps for the rest.
    return widenStep(length - kStep);
  }
  for (size_t i = 0; i < length; ++i) {
    if (static_cast<signed char>(text[i]) < 0) return false;
    wide[i] = static_cast<wchar_t>(text[i]);
  }
  return true;
}

// Converts `length` bytes at `text` into the units before `end`, which must have space for that many, and
// returns their start; null if the system fails to convert them.
wchar_t* ConvertBefore(wchar_t* end, const char* text, int length) {
  wchar_t* start = end - length;
  // Most names are ASCII, for which every conversion gives the same result.
  if (WidenAscii(text, static_cast<size_t>(length), start)) return start;
  int converted = MultiByteToWideChar(CP_UTF8, 0, text, length, start, length);
  if (!converted) return nullptr;
  wchar_t* placed = end - converted;
  if (placed != start) MoveBytes(placed, start, static_cast<size_t>(converted) * sizeof(wchar_t));
  return placed;
}

}  // namespace

PathObject* PathFlatten(PathObject* path) {
  if (!path) return nullptr;
  if (!path->parent) return static_cast<PathObject*>(path->ops.Retain(path));
  size_t total = SumOfLengths(path);
  if (total > kMaxPathBytes) return nullptr;
  PathObject* flat = PathMake(nullptr, nullptr, static_cast<int>(total));
  if (!flat) return nullptr;

  char* end = flat->text + total;
  char* start = end;
  for (PathPiece piece = LastPiece(path); piece.node; piece = PieceBefore(piece)) {
    start -= piece.length;
    CopyBytes(start, piece.node->text, static_cast<size_t>(piece.length));
  }
  size_t length = static_cast<size_t>(end - start);
  if (start != flat->text) {
    MoveBytes(flat->text, start, length);
    flat->text[length] = '\0';
  }
  flat->length = static_cast<LONG>(length);
  return flat;
}

wchar_t* PathToWide(PathObject* path) {
  size_t total = SumOfLengths(path);
  if (!total || total > kMaxPathBytes) return nullptr;
  HeapStringW buffer(static_cast<wchar_t*>(HeapAllocZero(kWideBytesPerByte * total + kWideExtraBytes)));
  if (!buffer) return nullptr;

  // No text has more UTF-16 units than UTF-8 bytes, so the whole path fits into the first `total` units. They
  // are filled from the end. If nothing is dropped and all is ASCII, the text already begins at the front.
  wchar_t* end = buffer.get() + total;
  wchar_t* start = end;
  for (PathPiece piece = LastPiece(path); piece.node; piece = PieceBefore(piece)) {
    if (!piece.length) continue;
    start = ConvertBefore(start, piece.node->text, piece.length);
    if (!start) return nullptr;
  }
  wchar_t* text = buffer.get();
  if (start != text) {
    size_t length = static_cast<size_t>(end - start);
    MoveBytes(text, start, length * sizeof(wchar_t));
    text[length] = L'\0';
  }
  if (IsDrive(text) && !text[2]) {
    text[2] = L'\\';
    text[3] = L'\0';
  }
  return buffer.release();
}

unsigned PathCopyToBuffer(PathObject* path, wchar_t* buffer, unsigned capacity) {
  if (buffer && !capacity) return 0;
  HeapStringW text(PathToWide(path));
  size_t length = text ? TxtLenW(text.get()) : 0;
  if (!buffer) return static_cast<unsigned>(length);
  if (length > capacity - 1) length = capacity - 1;
  if (text) CopyBytes(buffer, text.get(), length * sizeof(wchar_t));
  buffer[length] = L'\0';
  return static_cast<unsigned>(length);
}

unsigned PathCopyText(Object* object, char* buffer, unsigned room, int, const char*, unsigned) {
  PathRef flat(PathFlatten(static_cast<PathObject*>(object)));
  if (!flat) return 0;
  unsigned length = static_cast<unsigned>(flat.get()->length);
  if (!buffer) return length;
  if (length > room) length = room;
  CopyBytes(buffer, flat.get()->text, length);
  return length;
}
