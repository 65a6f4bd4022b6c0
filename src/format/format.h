// The format engine: makes every text of the library, such as log lines, registry data, file names and
// command lines. Used by all higher layers.
//
// A directive is
//
//   % [position$] [flags] [width] [.precision] [length] letter [{variant:modifiers:text}]
//
// with printf's letters and more. The details are documented with the code that implements them: directive.h
// (the parts of a directive), format.cpp (the letters), plain_directive.h (the fast path of most directives),
// text_sink.h (the escapes), date_pattern.h (dates).
//
// Unlike in printf, a precision first of all limits the bytes that its conversion may write.
#pragma once

#include <stdarg.h>

extern "C" {

/// Writes the text that `format` and its arguments describe into `buffer` and returns its length in bytes
/// without the terminator. `size` is the buffer's capacity in bytes including the terminator. The text is cut
/// to `size` - 1 bytes and always terminated, but with a `size` of 0 nothing is written. With a null `buffer`
/// nothing is written and the result is the length of the whole text.
///
/// On purpose: a GUID and the compact date stamps need space for one byte more than they write, besides the
/// terminator. At the very end of a buffer of exactly the measured size and a terminator they write nothing.
unsigned FormatString(char* buffer, unsigned size, const char* format, ...);

/// Like FormatString, with the arguments in a list, which is left unchanged.
unsigned FormatStringV(char* buffer, unsigned size, const char* format, va_list args);

}  // extern "C"
