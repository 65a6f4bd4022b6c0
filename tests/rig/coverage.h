// Adds up how often each piece of the libraries ran. Used by the test programs for ./hx coverage.
//
// A library of the preset "PROCESSOR-coverage" has counters that the compiler increments. Each test loads a
// fresh library, whose counters begin at 0, so its counters are added up before it is unloaded.
#pragma once

#include <string>

namespace rig {

/// Begins to add up the counters if HX_COVERAGE names a folder. Call it before the first library is loaded.
/// Libraries without counters are left out.
void BeginCoverage();

/// Writes the sums of what ran since the last call to that folder, one file for each library that was loaded
/// meanwhile ("PathTest.hxsetup.profraw"), in the form that llvm-profdata reads. `suite` is the name of the
/// tests that ran; the file's name has "+" for each "/" of it. Returns false if a file cannot be written.
/// Does nothing without HX_COVERAGE.
bool WriteCoverage(const std::string& suite);

}  // namespace rig
