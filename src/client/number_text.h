// Numbers in the properties of the scheduled tasks. Used by the actions that register tasks.
//
// More than 32 bits of digits wrap around, and what comes of them counts as signed, deliberately.
#pragma once

#include <windows.h>

extern "C" {

/// The value of the decimal digits that `text` begins with; 0 when it begins with none, a sign among them.
int ParseDigitsA(const char* text);

/// The value of an interval: a sign or none, then hexadecimal digits behind "0x" (of this case) or decimal
/// ones, up to the first other character. "-" negates. Without any digit 0.
int ParseIntervalA(const char* text);

}  // extern "C"
