// Writes texts that must be converted first: wide text and characters, and objects that print themselves.
// Only these conversions allocate memory from the heap, and they free it at once. If out of memory, the
// directive writes nothing. Used by the conversions "ls", "lc", "O" and "p{O}".
#pragma once

#include "base/object.h"
#include "format/directive.h"
#include "format/output.h"

/// Writes wide text in UTF-8: as many units as the directive's input length says, or up to the terminator.
/// Lone surrogates become U+FFFD. Writes nothing for null.
void WriteWideText(Output* output, const wchar_t* text, const Directive& directive);

/// Writes one character in UTF-8. `character` is a UTF-16 unit or a larger code point; surrogates and invalid
/// code points become U+FFFD.
void WriteWideCharacter(Output* output, uint32_t character, const Directive& directive);

/// Writes the text of `object`. If the directive changes the text (modifiers, "-" or "+"), asks the object
/// for printable text or else copies its text, and writes that like a string. Otherwise the object itself
/// writes into the output, as many bytes as the width (if any), the precision and the space allow. For a null
/// object writes the directive's brace text.
void WriteObject(Output* output, Object* object, const Directive& directive);
