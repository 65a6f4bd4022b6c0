// The format engine, through which every text of the library passes: log lines, registry data, file names,
// command lines. Used by everything above this floor.
//
// A directive is
//
//   % [position$] [flags] [width] [.precision] [length] letter [{variant:modifiers:text}]
//
// with printf's letters and more. Docs and tables are with the code that serves them: directive.h (the parts
// of a directive), format.cpp (the letters), plain_directive.h (the quick way of most directives),
// text_sink.h (the escapes), date_pattern.h (dates).
//
// Unlike printf, a precision is first of all the most bytes that its conversion may write.
#pragma once

#include <stdarg.h>

extern "C" {

/// Writes the text that `format` and its arguments describe into `buffer` and returns its length in bytes
/// without the terminator. `size` is the buffer's capacity in bytes with the terminator: the text is cut to
/// `size` - 1 bytes and always terminated; with a `size` of 0 nothing is written at all. With a null `buffer`
/// nothing is written and the result is the length that the whole text needs.
///
/// Deliberate: a GUID and the compact date stamps want room for one byte more than they write, besides the
/// terminator; at the very end of a buffer of exactly the measured size and a terminator they write nothing.
unsigned FormatString(char* buffer, unsigned size, const char* format, ...);

/// FormatString with its arguments in a list, which is left as it was.
unsigned FormatStringV(char* buffer, unsigned size, const char* format, va_list args);

}  // extern "C"
