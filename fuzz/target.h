// The targets: each runs one part of the library on the bytes of the fuzzer. Used by main.cpp and by the
// targets.
#pragma once

#include "data.h"

/// A target. Its name is that of `./hx fuzz NAME`.
struct Target {
  const char* name;         ///< in lower case, words joined by "-"
  void (*run)(Data* data);  ///< one run; ends the process if the library did something wrong
};

/// All targets, in the order of the help.
extern const Target kTargets[];
/// Their number.
extern const size_t kTargetCount;

/// Formats with fitting arguments.
void RunFormats(Data* data);
/// Any text as a format.
void RunRawFormats(Data* data);
/// Answers of the locale.
void RunLocale(Data* data);
/// Date patterns.
void RunDates(Data* data);
/// Operations on paths.
void RunPaths(Data* data);
/// Patterns with "*" and "?".
void RunWildcards(Data* data);
/// Command lines of the copy/move engine.
void RunEngine(Data* data);
/// Whole actions.
void RunActions(Data* data);
