#include "rig/trace.h"

#include <algorithm>

#include "rig/failures.h"
#include "rig/print.h"

namespace rig {

size_t Trace::Begin(std::string call) {
  lines_.push_back(std::move(call));
  return lines_.size() - 1;
}

void Trace::End(size_t line, const std::string& outcome) {
  if (line < lines_.size()) {
    lines_[line] += outcome;
  }
}

std::vector<std::string> Trace::LinesStarting(const std::vector<std::string>& starts) const {
  std::vector<std::string> found;
  for (const std::string& line : lines_) {
    if (std::any_of(starts.begin(), starts.end(),
                    [&](const std::string& start) { return line.rfind(start, 0) == 0; })) {
      found.push_back(line);
    }
  }
  return found;
}

std::vector<std::string> Trace::LinesIn(const std::string& folder) const {
  // As it appears in a line: without the quotation marks around a whole text.
  const std::string quoted = Quote(folder);
  const std::string own = quoted.substr(1, quoted.size() - 2);
  std::vector<std::string> lines = lines_;
  for (std::string& line : lines) {
    for (size_t at = line.find(own); at != std::string::npos; at = line.find(own, at)) {
      line.replace(at, own.size(), "T:");
    }
  }
  return lines;
}

std::string DescribeDifference(const std::vector<std::string>& expected,
                               const std::vector<std::string>& actual) {
  if (expected == actual) {
    return {};
  }
  // common[i][j] is the length of the longest common subsequence of expected from i on and actual from j on.
  std::vector<std::vector<size_t>> common(expected.size() + 1, std::vector<size_t>(actual.size() + 1, 0));
  for (size_t i = expected.size(); i-- > 0;) {
    for (size_t j = actual.size(); j-- > 0;) {
      common[i][j] =
          expected[i] == actual[j] ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  std::string text;
  size_t i = 0;
  size_t j = 0;
  while (i < expected.size() || j < actual.size()) {
    if (i < expected.size() && j < actual.size() && expected[i] == actual[j]) {
      text += "\n  " + expected[i++];
      ++j;
    } else if (j == actual.size() || (i < expected.size() && common[i + 1][j] >= common[i][j + 1])) {
      text += "\n- " + expected[i++];
    } else {
      text += "\n+ " + actual[j++];
    }
  }
  return text;
}

void CompareLines(const char* file, int line, const char* what, const std::vector<std::string>& expected,
                  const std::vector<std::string>& actual) {
  std::string difference = DescribeDifference(expected, actual);
  if (!difference.empty()) {
    Fail(std::string(file) + ":" + std::to_string(line) + ": the " + what +
         " is not as expected (- expected, + actual):" + difference);
  }
}

}  // namespace rig
