// Writes binary data as text: hexadecimal dumps, base64 and GUIDs. Used by the conversions "h", "H", "p{h}",
// "p{H}", "p{b}", "p{B}" and "p{U}".
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// Writes two digits for each of `length` bytes (with kToTerminator up to a zero byte), with a blank between
/// bytes under the " " flag, padded to the directive's width. Null or empty data write nothing.
void WriteHexDump(Output* output, const uint8_t* data, uint32_t length, bool capital,
                  const Directive& directive);

/// Writes `length` bytes (with kToTerminator up to a zero byte) in base64: four characters for each three
/// bytes, with the standard alphabet and "=" at the end, or URL-safe and without. Width and modifiers have no
/// meaning. Deliberate: when only measuring, the URL-safe form counts the "=" that it does not write.
void WriteBase64(Output* output, const uint8_t* data, uint32_t length, bool urlSafe);

/// Writes the GUID in the 16 bytes at `guid` as 36 characters in capitals. Needs 37 bytes of room, else
/// nothing is written; null writes nothing.
void WriteGuid(Output* output, const uint8_t* guid, const Directive& directive);
