// Writes time stamps. Used by the conversions "D", "z", "d{z}", "Z" and "d{Z}".
#pragma once

#include "format/directive.h"
#include "format/output.h"

/// Writes a stamp in seconds since 1970 without any conversion between zones; 0 is the local time now. The
/// form is the pattern in braces (with "#" before its letters) if there is one. Otherwise "#" asks for the
/// compact form with the zone offset, which needs 20 bytes of space, and "+" for the locale's short date and
/// its time. The default is the short date.
void WriteStamp(Output* output, int64_t seconds, const Directive& directive);

/// Writes a UTC stamp; 0 is now. The forms are those of WriteStamp in local time, but the compact form is in
/// UTC with a "Z" and needs 16 bytes of space.
void WriteUtcStamp(Output* output, int64_t seconds, const Directive& directive);
