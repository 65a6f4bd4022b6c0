// Writes floating-point numbers by the rules of C's "%e", "%f" and "%g". Used by the conversions "e", "f",
// "g", "E", "F" and "G".
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// Writes `value` in the form of the directive's letter, padded to its width. The decimal point is the
/// locale's; "," and "'" group the digits before it. NaN is "nan" without a sign. An infinity begins with the
/// locale's negative sign or, if the flags ask for it, with its positive sign or a blank.
void WriteFloat(Output* output, double value, const Directive& directive);
