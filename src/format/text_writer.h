// Writes one text of a directive: padded to the directive's width, escaped by its modifiers, cut to the space
// left. Used by every conversion that produces text.
#pragma once

#include "format/text_sink.h"

/// Puts the pieces of a text into `sink`; `context` is the one that the caller of WriteComposed passed.
/// Called once or twice for a text; must give the same pieces each time.
using TextSource = void (*)(TextSink* sink, const void* context);

/// Writes `length` bytes of `text` (or up to its terminator), padded to `width` bytes and with the modifiers
/// in `flags`. Zero bytes of the text are neither written nor counted. The padding depends on the length of
/// the whole text, even if less of it fits.
void WriteText(Output* output, const char* text, uint32_t length, uint32_t flags, uint32_t width);

/// Writes `length` bytes of `text` unchanged, padded to `width` bytes.
[[gnu::noinline]] void WritePadded(Output* output, const char* text, uint32_t length, uint32_t flags,
                                   uint32_t width);

/// Writes `length` bytes of `text` with the modifiers in `flags`; "+" does not count as a modifier.
[[gnu::cold]] void WriteModified(Output* output, const char* text, uint32_t length, uint32_t flags,
                                 uint32_t width);

/// Like WriteText for a text that the engine made: it has no zero bytes, and "+" does not mean an escape.
inline void WriteOwnText(Output* output, const char* text, uint32_t length, uint32_t flags, uint32_t width) {
  (flags & kTextModifiers ? WriteModified : WritePadded)(output, text, length, flags, width);
}

/// Like WriteText for a text that comes in pieces.
[[gnu::noinline, gnu::cold]] void WriteComposed(Output* output, TextSource source, const void* context,
                                                uint32_t flags, uint32_t width);
