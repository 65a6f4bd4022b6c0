// Writes texts that must be made first: wide text and characters, and objects that print themselves. These
// are the only conversions that take memory from the heap, and they give it back at once; where there is
// none, the directive writes nothing. Used by the conversions "ls", "lc", "O" and "p{O}".
#pragma once

#include "base/object.h"
#include "format/directive.h"
#include "format/output.h"

/// Writes wide text in UTF-8: the units that the directive's input length names, or up to the terminator.
/// Lone surrogates become U+FFFD. Null writes nothing.
void WriteWideText(Output* output, const wchar_t* text, const Directive& directive);

/// Writes one character in UTF-8. `character` is a UTF-16 unit or a code point above them; surrogates and
/// what is no code point become U+FFFD.
void WriteWideCharacter(Output* output, uint32_t character, const Directive& directive);

/// Writes the text of `object`. When the text needs changes (modifiers, "-" or "+"), it is asked for
/// printable text or copied, and written like a string; otherwise the object writes into the output itself,
/// as many bytes as the width (if any), the precision and the room allow. Null writes the directive's brace
/// text.
void WriteObject(Output* output, Object* object, const Directive& directive);
