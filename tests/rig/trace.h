// The ordered calls that left the library, one text line each. Used by the rig and by the tests' comparisons.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rig {

/// The lines of one run, in the order in which the calls began.
class Trace {
 public:
  /// Adds the line of a call that begins; returns its number for End.
  size_t Begin(std::string call);
  /// Completes the line with what the call gave (" = 0").
  void End(size_t line, const std::string& outcome);
  /// The lines so far.
  const std::vector<std::string>& Lines() const { return lines_; }
  /// The lines so far that begin with one of `starts`.
  std::vector<std::string> LinesStarting(const std::vector<std::string>& starts) const;
  /// The lines so far, with "T:" wherever the path `folder` is.
  std::vector<std::string> LinesIn(const std::string& folder) const;
  /// Forgets them.
  void Clear() { lines_.clear(); }

 private:
  std::vector<std::string> lines_;
};

/// What differs between two lists of lines: every line with "  " (in both), "- " (only expected) or "+ "
/// (only there) in front. Empty when they are equal.
std::string DescribeDifference(const std::vector<std::string>& expected,
                               const std::vector<std::string>& actual);

/// Fails the test with the difference when the lists are not equal; `what` names them.
void CompareLines(const char* file, int line, const char* what, const std::vector<std::string>& expected,
                  const std::vector<std::string>& actual);

}  // namespace rig
