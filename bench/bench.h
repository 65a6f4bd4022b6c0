// Times the benchmarks and prints their tables. Used by every program of this folder.
//
// The subjects run in turns: each round runs one short batch of each subject, so that other load on the
// machine slows all of them alike. The result is the median over the rounds of the ratios within a round.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "rig/marks.h"

namespace bench {

/// The ratio of a subject that is not part of a case.
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// Makes the compiler assume that `value`, and all memory, is read and changed here.
template <class Value>
inline void Keep(const Value& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

/// Prints a message as printf does and exits the program with status 1.
template <class... Arguments>
[[noreturn]] void Die(const char* format, Arguments... arguments) {
  std::printf(format, arguments...);
  std::printf("\n");
  std::exit(1);
}

/// Returns the folder of the libraries from the environment, with a backslash at its end.
inline std::string LibraryFolder() {
  char folder[MAX_PATH];
  const DWORD length = GetEnvironmentVariableA("HX_LIBRARY_DIR", folder, sizeof folder);
  if (length == 0 || length >= sizeof folder) Die("HX_LIBRARY_DIR must name the folder of the libraries");
  return std::string(folder) + "\\";
}

/// Returns hxinternals.dll, which exports every operation and stays loaded.
inline HMODULE Internals() {
  static const HMODULE module = LoadLibraryA((LibraryFolder() + "hxinternals.dll").c_str());
  if (!module) Die("cannot load hxinternals.dll: error %lu", GetLastError());
  return module;
}

/// Returns the function `name` of hxinternals.dll.
template <class Function>
Function* Internal(const char* name) {
  const FARPROC address = GetProcAddress(Internals(), name);
  if (!address) Die("hxinternals.dll does not export %s", name);
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
}

/// Makes the instructions of hxinternals.dll those that are counted as the library's own.
inline void MarkLibrary() {
  if (rig::IsCounted()) rig::MarkImage(Internals());
}

/// Writes what was counted since the last count: the table, the subject and the case that it belongs to.
inline void WriteCount(const std::string& table, const std::string& subject, const std::string& name) {
  rig::MarkWrite(table + "\t" + subject + "\t" + name);
}

/// Counts the instructions of one run of `work`. It runs twice before, so that what it keeps is there.
template <class Work>
void CountWork(const std::string& table, const std::string& subject, const std::string& name, Work work) {
  work();
  work();
  rig::MarkBegin();
  work();
  rig::MarkEnd();
  WriteCount(table, subject, name);
}

/// Does the work `count` times.
using Batch = std::function<void(unsigned count)>;

/// Returns the median of `values`.
inline double Median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

/// Returns the microseconds that `batch` takes for `count` times.
inline double Time(const Batch& batch, unsigned count) {
  static const double perMicrosecond = [] {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart) / 1e6;
  }();
  LARGE_INTEGER from, to;
  QueryPerformanceCounter(&from);
  batch(count);
  QueryPerformanceCounter(&to);
  return static_cast<double>(to.QuadPart - from.QuadPart) / perMicrosecond;
}

/// Returns a count for which `batch` takes about `microseconds`.
inline unsigned Calibrate(const Batch& batch, double microseconds) {
  for (unsigned count = 1;; count *= 2) {
    // The quicker of two runs: the first may have been disturbed, or may have filled a cache.
    const double time = std::min(Time(batch, count), Time(batch, count));
    if (time < microseconds / 2 && count < 1u << 24) continue;
    return std::max(1u, static_cast<unsigned>(count * (microseconds / time)));
  }
}

/// The number of rounds, and the length of one batch in microseconds.
struct Effort {
  unsigned rounds = 61;
  double microseconds = 100;
};

/// Returns for each subject but the first how many times as long as the first it takes; kNone for an empty
/// subject.
inline std::vector<double> Ratios(const std::vector<Batch>& subjects, Effort effort = {}) {
  std::vector<unsigned> counts;
  for (const Batch& batch : subjects) counts.push_back(batch ? Calibrate(batch, effort.microseconds) : 0);
  std::vector<std::vector<double>> ratios(subjects.size());
  for (unsigned round = 0; round < effort.rounds; ++round) {
    std::vector<double> times(subjects.size());
    for (size_t turn = 0; turn < subjects.size(); ++turn) {
      // Each round begins with another subject.
      const size_t i = (turn + round) % subjects.size();
      if (subjects[i]) times[i] = Time(subjects[i], counts[i]) / counts[i];
    }
    for (size_t i = 1; i < subjects.size(); ++i) {
      if (subjects[i]) ratios[i].push_back(times[i] / times[0]);
    }
  }
  std::vector<double> medians;
  for (size_t i = 1; i < subjects.size(); ++i) {
    medians.push_back(subjects[i] ? Median(ratios[i]) : kNone);
  }
  return medians;
}

/// A table of ratios: one row for each case and one column for each rival. Below the rows it has the
/// geometric mean and the worst case of each column.
class Table {
 public:
  /// Makes an empty table with a heading and the rivals' names.
  Table(std::string title, std::vector<std::string> rivals)
      : title_(std::move(title)), rivals_(std::move(rivals)) {}

  /// Returns the heading.
  const std::string& Title() const { return title_; }

  /// Adds a case with one ratio for each rival.
  void Add(std::string name, std::vector<double> ratios) {
    rows_.push_back({std::move(name), std::move(ratios)});
  }

  /// Prints the whole table, unless instructions are counted.
  void Print() const {
    if (rig::IsCounted()) return;
    std::printf("\n%s\n", title_.c_str());
    PrintStart("");
    for (const std::string& rival : rivals_) std::printf(" %10s", rival.c_str());
    std::printf("\n");
    for (const Row& row : rows_) {
      PrintStart(row.name);
      for (double ratio : row.ratios) PrintRatio(ratio);
      std::printf("\n");
    }
    PrintStart("geometric mean");
    for (size_t i = 0; i < rivals_.size(); ++i) PrintRatio(Mean(i));
    std::printf("\n");
    for (size_t i = 0; i < rivals_.size(); ++i) PrintWorst(i);
    std::fflush(stdout);
  }

 private:
  struct Row {
    std::string name;
    std::vector<double> ratios;
  };

  static void PrintStart(const std::string& text) { std::printf("  %-52.52s", text.c_str()); }

  static void PrintRatio(double ratio) {
    if (std::isnan(ratio)) {
      std::printf(" %10s", "-");
    } else {
      std::printf(" %10.2f", ratio);
    }
  }

  double Mean(size_t column) const {
    double sum = 0;
    unsigned count = 0;
    for (const Row& row : rows_) {
      if (std::isnan(row.ratios[column])) continue;
      sum += std::log(row.ratios[column]);
      ++count;
    }
    return count ? std::exp(sum / count) : kNone;
  }

  void PrintWorst(size_t column) const {
    const Row* worst = nullptr;
    for (const Row& row : rows_) {
      if (std::isnan(row.ratios[column])) continue;
      if (!worst || row.ratios[column] < worst->ratios[column]) worst = &row;
    }
    if (!worst) return;
    std::printf("  worst against %s: %.2f, %s\n", rivals_[column].c_str(), worst->ratios[column],
                worst->name.c_str());
  }

  std::string title_;
  std::vector<std::string> rivals_;
  std::vector<Row> rows_;
};

}  // namespace bench
