// Adds up how often each piece of the libraries ran. Used by the test programs for ./hx coverage.
//
// A library of the preset "PROCESSOR-coverage" has counters that the compiler increments. Each test loads a
// fresh library, whose counters begin at 0, so its counters are added up before it is unloaded.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rig {

/// One section of a loaded library; null if the library does not have it.
struct CounterSection {
  const char* begin = nullptr;  ///< its first byte
  size_t size = 0;              ///< its bytes
};

/// What the compiler adds to a library that counts what runs.
struct CounterSections {
  CounterSection records;   ///< a record for each function, of 64 bytes
  CounterSection names;     ///< a byte that belongs to no name, then the names of the functions
  CounterSection counters;  ///< numbers of 8 bytes
  CounterSection bitmap;    ///< bits that say which combinations of conditions were seen; may be null

  /// Returns the sections of a loaded module.
  static CounterSections Of(HMODULE module);
};

/// The sums of the counters of several copies of one library.
class CounterSums {
 public:
  /// Adds the counters of a copy. Does nothing for a library without counters.
  void Add(const CounterSections& sections);
  /// Returns the sums as a raw profile, in the form 10 that llvm-profdata reads; empty if nothing was added.
  std::string Profile() const;

 private:
  std::string records_;
  std::string names_;
  std::vector<uint64_t> counters_;
  std::string bitmap_;
  uint32_t countersDelta_ = 0;
  uint32_t bitmapDelta_ = 0;
};

/// Returns the folder that HX_COVERAGE names, of any length; empty if it names none.
std::wstring CoverageFolder();

/// Begins to add up the counters if HX_COVERAGE names a folder. Call it before the first library is loaded.
/// Libraries without counters are left out.
void BeginCoverage();

/// Writes the sums of what ran since the last call to that folder, one file for each library that was loaded
/// meanwhile ("PathTest.hxsetup.profraw"). `suite` is the name of the tests that ran; the file's name has "+"
/// for each "/" of it. Returns false if a file cannot be written. Does nothing without HX_COVERAGE.
bool WriteCoverage(const std::string& suite);

}  // namespace rig
