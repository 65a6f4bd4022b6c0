#include "acceptance/report.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "acceptance/limit.h"

namespace acceptance {

namespace {

const char kDiffersHead[] = "differs_";

std::string Unescaped(std::string text) {
  static const std::pair<const char*, const char*> kEntities[] = {
      {"&quot;", "\""}, {"&apos;", "'"}, {"&lt;", "<"},   {"&gt;", ">"},
      {"&#x0A;", "\n"}, {"&#x0D;", ""},  {"&#x09;", " "}, {"&amp;", "&"}};
  for (const auto& [entity, plain] : kEntities) {
    const std::string what = entity, by = plain;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
      text.replace(at, what.size(), by);
  }
  return text;
}

// Returns the value of an attribute of the tag that begins at `tag`.
std::string Attribute(const std::string& xml, size_t tag, const std::string& name) {
  const size_t end = xml.find('>', tag);
  const std::string mark = " " + name + "=\"";
  const size_t start = xml.find(mark, tag);
  if (start == std::string::npos || start > end) return "";
  const size_t value = start + mark.size();
  return Unescaped(xml.substr(value, xml.find('"', value) - value));
}

// Returns the first line of a message that says more than where it was.
std::string FirstLine(const std::string& message) {
  const size_t place = message.find("\n");
  std::string line = place == std::string::npos ? message : message.substr(place + 1);
  if (message.find(".cpp:") == std::string::npos || message.find(".cpp:") > place) line = message;
  return line.substr(0, line.find('\n'));
}

std::string Count(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

bool IsJudged(const Run& run, const TestResult& test) {
  return !run.isMicrosofts || test.differs.empty();
}

std::string HowItEnded(const LevelResult& level) {
  const std::string where = level.lastStarted.empty() ? "before its first test" : "in " + level.lastStarted;
  if (level.status == kNotStarted) return "could not be started";
  char status[16];
  std::snprintf(status, sizeof status, "0x%x", level.status);
  std::string text = level.status == kTimedOut ? "was ended at its time limit, "
                                               : std::string("broke off with status ") + status + ", ";
  text += where;
  // The installer's service goes on without the program that has asked it.
  if (level.name == "install") text += " (an installation may still be going on: reset the machine)";
  return text;
}

}  // namespace

std::vector<TestResult> TestsOf(const std::string& xml) {
  std::vector<TestResult> tests;
  const std::string mark = "<testcase ";
  for (size_t start = xml.find(mark); start != std::string::npos;) {
    const size_t next = xml.find(mark, start + 1);
    const std::string text = xml.substr(start, next == std::string::npos ? next : next - start);
    start = next;
    if (Attribute(text, 0, "status") != "run") continue;
    TestResult test;
    test.name = Attribute(text, 0, "classname") + "." + Attribute(text, 0, "name");
    const size_t failure = text.find("<failure "), skipped = text.find("<skipped ");
    if (failure != std::string::npos) {
      test.outcome = Outcome::kFailed;
      test.message = FirstLine(Attribute(text, failure, "message"));
    } else if (skipped != std::string::npos) {
      test.outcome = Outcome::kLeftOut;
      test.message = FirstLine(Attribute(text, skipped, "message"));
    }
    const std::string property = "<property ";
    for (size_t at = text.find(property); at != std::string::npos; at = text.find(property, at + 1)) {
      const std::string name = Attribute(text, at, "name");
      if (name.rfind(kDiffersHead, 0) == 0) test.differs.push_back(name.substr(sizeof kDiffersHead - 1));
    }
    tests.push_back(std::move(test));
  }
  return tests;
}

std::string LastStarted(const std::string& output) {
  const std::string mark = "[ RUN      ] ";
  const size_t start = output.rfind(mark);
  if (start == std::string::npos) return "";
  const size_t name = start + mark.size();
  return output.substr(name, output.find_first_of("\r\n", name) - name);
}

std::vector<DifferenceRow> RowsOf(const std::string& text) {
  std::vector<DifferenceRow> rows;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string fields[4];
    size_t at = start;
    for (std::string& field : fields) {
      const size_t tab = std::min(text.find('\t', at), end);
      if (at < end) field = text.substr(at, tab - at);
      at = tab + 1;
    }
    rows.push_back({fields[0], fields[1], fields[2], fields[3]});
    start = end + 1;
  }
  return rows;
}

void AddMissingLevels(Run& run, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    const bool isThere = std::any_of(run.levels.begin(), run.levels.end(),
                                     [&](const LevelResult& level) { return level.name == name; });
    if (isThere) continue;
    LevelResult missing;
    missing.name = name;
    missing.status = kNotStarted;
    run.levels.push_back(std::move(missing));
  }
}

Verdict VerdictOf(const Run& run) {
  size_t passed = 0, failed = 0, unexpected = 0, leftOut = 0;
  std::string broken;
  for (const LevelResult& level : run.levels) {
    if (!level.hasResults) broken += "; the level " + level.name + " " + HowItEnded(level);
    for (const TestResult& test : level.tests) {
      passed += test.outcome == Outcome::kPassed;
      leftOut += test.outcome == Outcome::kLeftOut;
      if (test.outcome == Outcome::kFailed) ++(IsJudged(run, test) ? failed : unexpected);
    }
    // A program can fail outside its tests, for example in the arrangement that several of them share.
    const bool hasFailure = std::any_of(level.tests.begin(), level.tests.end(), [](const TestResult& test) {
      return test.outcome == Outcome::kFailed;
    });
    if (level.hasResults && level.status != 0 && !hasFailure)
      broken += "; the level " + level.name + " failed outside its tests";
  }
  if (run.levels.empty() || (passed + failed + unexpected == 0 && broken.empty()))
    return {2, "not run: no test was run"};
  std::string line;
  if (failed || !broken.empty()) {
    line =
        "failed: " + std::to_string(failed) + " of " + Count(passed + failed + unexpected, "test") + broken;
    if (unexpected) line += "; " + std::to_string(unexpected) + " more not as expected";
  } else if (unexpected) {
    line = "not as expected: " + Count(unexpected, "install test") +
           " met something else than the documentation of Windows says; all other tests passed";
  } else {
    line = "passed: " + Count(passed, "test");
  }
  if (leftOut) line += "; " + std::to_string(leftOut) + " left out";
  if (run.leavesInstall) line += "; without the install tests";
  if (!run.filter.empty()) line += "; only tests that match " + run.filter;
  return {failed || unexpected || !broken.empty() ? 1 : 0, line};
}

std::string ReportOf(const Run& run) {
  std::string text = VerdictOf(run).line + "\n\nMACHINE\n\n";
  for (const std::string& line : run.facts) text += "  " + line + "\n";
  text += "  archive for: " + run.processor + "\n";
  for (const std::string& line : run.remarks) text += "  remark: " + line + "\n";

  text += "\nLEVELS\n\n";
  for (const LevelResult& level : run.levels) {
    size_t passed = 0, failed = 0, leftOut = 0;
    for (const TestResult& test : level.tests) {
      passed += test.outcome == Outcome::kPassed;
      failed += test.outcome == Outcome::kFailed;
      leftOut += test.outcome == Outcome::kLeftOut;
    }
    text += "  " + level.name + ": " + std::to_string(passed) + " passed, " + std::to_string(failed) +
            " failed, " + std::to_string(leftOut) + " left out, in " + Count(level.seconds, "second");
    if (!level.hasResults) text += "; it " + HowItEnded(level);
    text += "\n";
  }

  std::map<std::string, std::vector<const TestResult*>> dependents;
  for (const auto& [title, outcome] :
       {std::pair("FAILED", Outcome::kFailed), {"LEFT OUT", Outcome::kLeftOut}}) {
    std::string lines;
    for (const LevelResult& level : run.levels) {
      for (const TestResult& test : level.tests) {
        if (test.outcome != outcome) continue;
        lines += "  " + level.name + ": " + test.name;
        if (outcome == Outcome::kFailed && !IsJudged(run, test)) lines += " (not as expected)";
        lines += "\n    " + test.message + "\n";
      }
    }
    if (!lines.empty()) text += std::string("\n") + title + "\n\n" + lines;
  }
  for (const LevelResult& level : run.levels) {
    for (const TestResult& test : level.tests) {
      for (const std::string& name : test.differs) dependents[name].push_back(&test);
    }
  }

  if (!run.differences.empty()) {
    text += "\nWHERE THE ENGINES DIFFER\n\n";
    text += run.isMicrosofts
                ? "  What is expected on Windows comes from its documentation. Before this run nobody had "
                  "seen it.\n"
                : "  This run was on Wine's engine. What is expected on Windows was never seen yet.\n";
    for (const DifferenceRow& row : run.differences) {
      const auto& tests = dependents[row.name];
      size_t failed = 0, leftOut = 0;
      for (const TestResult* test : tests) {
        failed += test->outcome == Outcome::kFailed;
        leftOut += test->outcome == Outcome::kLeftOut;
      }
      text += "\n  " + row.name + "\n    Wine:     " + row.wine + "\n    Windows:  " + row.windows +
              "\n    says:     " + row.source + "\n    ";
      if (tests.empty()) {
        text += "no test of this run depends on it";
      } else if (!run.isMicrosofts) {
        text += "expected on Windows, never seen yet; " + Count(tests.size(), "test") + " of this run";
      } else if (tests.size() == leftOut) {
        text += "left out here: " + Count(leftOut, "test");
      } else {
        text += "expected on Windows: " + std::to_string(tests.size() - failed - leftOut) + " of " +
                Count(tests.size() - leftOut, "test") + " saw it in this run";
      }
      text += "\n";
    }
  }
  return text;
}

std::string FailedFilter(const LevelResult& level) {
  std::string filter;
  for (const TestResult& test : level.tests) {
    if (test.outcome == Outcome::kFailed) filter += (filter.empty() ? "" : ":") + test.name;
  }
  return filter;
}

}  // namespace acceptance
