// Numbers in the properties of the scheduled tasks. Used by the actions that register tasks.
//
// On purpose: a number of more than 32 bits wraps around, and the result is then taken as signed.
#pragma once

#include <windows.h>

extern "C" {

/// Returns the value of the decimal digits at the start of `text`; 0 if it starts with any other character,
/// such as a sign.
int ParseDigitsA(const char* text);

/// Returns the value of an interval: an optional sign ("-" negates), then either "0x" (lower case only) and
/// hexadecimal digits, or decimal digits. The first other character ends it. Returns 0 without any digit.
int ParseIntervalA(const char* text);

}  // extern "C"
