// Writes binary data as text: hexadecimal dumps, base64 and GUIDs. Used by the conversions "h", "H", "p{h}",
// "p{H}", "p{b}", "p{B}" and "p{U}".
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// Writes two digits for each of `length` bytes (with kToTerminator up to a zero byte), padded to the
/// directive's width. With the " " flag a blank separates the bytes. Writes nothing for null or empty data.
void WriteHexDump(Output* output, const uint8_t* data, uint32_t length, bool capital,
                  const Directive& directive);

/// Writes `length` bytes (with kToTerminator up to a zero byte) in base64: four characters for every three
/// bytes. The standard form uses the standard alphabet and "=" at the end, the URL-safe form the URL-safe
/// alphabet without "=". Width and modifiers are ignored. On purpose: when only measuring, the URL-safe form
/// counts the "=" that it does not write.
void WriteBase64(Output* output, const uint8_t* data, uint32_t length, bool urlSafe);

/// Writes the GUID in the 16 bytes at `guid` as 36 characters with capital digits. Writes nothing if there is
/// space for fewer than 37 bytes or if `guid` is null.
void WriteGuid(Output* output, const uint8_t* guid, const Directive& directive);
