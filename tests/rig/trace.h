// The calls that left the library in order, one text line each. Used by the rig and by the tests'
// comparisons.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rig {

/// The lines of one run, in the order in which the calls began.
class Trace {
 public:
  /// Adds the line of a call that starts; returns its number for End.
  size_t Begin(std::string call);
  /// Completes the line with the outcome of the call (" = 0").
  void End(size_t line, const std::string& outcome);
  /// Returns the lines so far.
  const std::vector<std::string>& Lines() const { return lines_; }
  /// Returns the lines so far that begin with one of `starts`.
  std::vector<std::string> LinesStarting(const std::vector<std::string>& starts) const;
  /// Returns the lines so far, with the path `folder` replaced by "T:" everywhere.
  std::vector<std::string> LinesIn(const std::string& folder) const;
  /// Removes all lines.
  void Clear() { lines_.clear(); }

 private:
  std::vector<std::string> lines_;
};

/// Describes how two lists of lines differ. Every line begins with "  " (in both), "- " (only expected) or
/// "+ " (only actual). Empty if the lists are equal.
std::string DescribeDifference(const std::vector<std::string>& expected,
                               const std::vector<std::string>& actual);

/// Fails the test with the difference if the lists differ; `what` names them.
void CompareLines(const char* file, int line, const char* what, const std::vector<std::string>& expected,
                  const std::vector<std::string>& actual);

}  // namespace rig
