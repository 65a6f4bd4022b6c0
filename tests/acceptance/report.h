// The results of an acceptance run and its report. Used by accept.exe.
#pragma once

#include <string>
#include <vector>

namespace acceptance {

/// How a test ended.
enum class Outcome { kPassed, kFailed, kLeftOut };

/// One test of a run.
struct TestResult {
  std::string name;  ///< "Suite.Test"
  Outcome outcome = Outcome::kPassed;
  std::string message;  ///< the first line of its first failure, or why it was left out
  std::vector<std::string>
      differs;  ///< the differences between the engines on which it depends, by their names
};

/// One test program of a run.
struct LevelResult {
  std::string name;               ///< "unit", "actions", "install" ...
  unsigned status = 0;            ///< the program's exit status, as RunLimited returns it
  unsigned seconds = 0;           ///< how long it ran
  bool hasResults = false;        ///< it wrote its results, so it ran to its end
  std::string lastStarted;        ///< the test that it began last; for a program that has no results
  std::vector<TestResult> tests;  ///< empty without results
};

/// A difference between the engines, as install_tests.exe lists them.
struct DifferenceRow {
  std::string name, wine, windows, source;
};

/// Everything that a report is made of.
struct Run {
  bool isMicrosofts = false;         ///< the engine of this machine is Microsoft's
  std::string processor;             ///< that of the archive
  std::vector<std::string> facts;    ///< lines about the machine
  std::vector<std::string> remarks;  ///< what the person should know
  std::vector<LevelResult> levels;   ///< in the order of the run
  std::vector<DifferenceRow> differences;
  std::string filter;          ///< only tests that match it were run; empty for all
  bool leavesInstall = false;  ///< the tests that change the machine were left out
};

/// Adds the levels of `names` that a run has no trace of, as programs that could not be started.
void AddMissingLevels(Run& run, const std::vector<std::string>& names);

/// Returns the tests of GoogleTest's results, an XML file.
std::vector<TestResult> TestsOf(const std::string& xml);

/// Returns the test that a program began last, from its output; empty if it began none.
std::string LastStarted(const std::string& output);

/// Returns the rows of a list of differences, one line each, with tabs between the four fields.
std::vector<DifferenceRow> RowsOf(const std::string& text);

/// The verdict of a run.
struct Verdict {
  int code = 0;      ///< 0 passed, 1 not passed, 2 no test was run
  std::string line;  ///< "passed: ...", "failed: ...", "not as expected: ..." or "not run: ..."
};
Verdict VerdictOf(const Run& run);

/// Returns the report: the verdict in the first line, then the machine, the levels, the failed and left-out
/// tests, and the differences between the engines.
std::string ReportOf(const Run& run);

/// Returns the names of the failed tests of a level, for a GoogleTest filter: with ":" between them.
std::string FailedFilter(const LevelResult& level);

}  // namespace acceptance
