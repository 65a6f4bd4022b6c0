// The installer engine of this machine: Wine's or Microsoft's. The install tests run on both. Where the two
// differ by what is documented, a test has an expectation for each, and kDifferences says why. Used only by
// tests/install.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace install {

/// The engines. Everything is seen on Wine's. What is expected of Microsoft's comes from its documentation,
/// and nobody has seen it yet.
enum class Engine { kWine, kWindows };

/// Returns the engine of this machine: Wine's if ntdll.dll exports "wine_get_version".
Engine ThisEngine();

/// The differences, in the order of kDifferences.
enum class Differs {
  kFailureInLog,
  kScriptInLog,
  kHiddenProperties,
  kDeferredProperties,
  kRollback,
  kCancelled,
  kEmptyFolders,
  kServiceKey,
  kServiceWithoutPassword,
  kAccounts,
  kFailureActions,
  kTasks,
  kScheduleService,
  kFirewall,
  kInheritance,
  kAccessOfFolders,
  kFileVersions,
  kSharedKey,
  kInterface,
  kLinks,
  kCaseOfNames,
  kShares,
  kFilesInUse,
  kTrackingLibrary,
  kNoticesInLog,
  kWholeMachine,
  kCount,
};

/// One difference between the engines.
struct Difference {
  const char* name;     ///< a short name, without blanks
  const char* wine;     ///< what Wine's engine does, which the tests have seen
  const char* windows;  ///< what Microsoft's engine does by its documentation
  const char* source;   ///< the document or function that says so
};

/// Returns the row of a difference.
const Difference& RowOf(Differs difference);

/// Records that the running test depends on a difference, as the property "differs_NAME" of its result.
void Note(Differs difference);

/// Returns true on Microsoft's engine. Notes the difference.
bool OnWindows(Differs difference);

/// Returns what the engine of this machine is expected to give. Notes the difference.
template <class Value>
Value ByEngine(Differs difference, Value wine, Value windows) {
  return OnWindows(difference) ? std::move(windows) : std::move(wine);
}

/// Returns the text with which a test that cannot be arranged on Microsoft's engine is left out there.
std::string LeftOut(Differs difference);

// ---- what the engines write into a verbose log

/// Returns true if `line` says that the action `action` failed: in a sequence, or in the script.
bool SaysFailed(Engine engine, const std::string& line, const std::string& action);

/// Returns the name of the action that ran in the script of this line, also in a rollback; empty if the line
/// is about something else. Wine's engine logs an action of the script like one of a sequence: there the name
/// is returned for each start of an action, and the second one of a name is that of the script.
std::string StartedAction(Engine engine, const std::string& line);

/// Returns the actions of `names` that ran in the script of a log, in order, also in a rollback.
std::vector<std::string> ScriptActions(Engine engine, const std::vector<std::string>& lines,
                                       const std::vector<std::string>& names);

/// Returns the lines of a log without those that repeat a notice for the event log.
std::vector<std::string> WithoutRepeats(Engine engine, const std::vector<std::string>& lines);

/// Returns the result of a run: `code`, but success if files in use are only replaced or deleted at the next
/// start of the machine. Wine's engine never says that.
unsigned long ResultOf(Engine engine, unsigned long code);

/// Returns the lines of the library as if it had stopped the agents whose program the run has moved aside
/// because it was in use: by its path such an agent is not the client's any more, so the library leaves it
/// alone and writes three lines about it. Wine's engine never moves a program aside.
std::vector<std::string> WithMovedAgents(Engine engine, const std::vector<std::string>& lines);

// ---- what the library and the packages leave

/// Returns the lines that an engine gives where Wine's gives `lines`: of the library's log, and of the
/// changes of the machine. Lines that do not differ stay as they are.
std::vector<std::string> LinesOf(Engine engine, const std::vector<std::string>& lines);

/// Returns LinesOf for the engine of this machine, and notes the differences that `lines` depend on.
std::vector<std::string> Expected(const std::vector<std::string>& lines);

/// Returns the differences as the text of a file: one line each, "NAME<tab>WINE<tab>WINDOWS<tab>SOURCE".
std::string DifferencesText();

}  // namespace install

/// Leaves the test out on Microsoft's engine, because its arrangement needs Wine. The report of a run names
/// the test and the reason.
#define HX_NEEDS_WINE(difference)                                                         \
  do {                                                                                    \
    if (::install::OnWindows(difference)) GTEST_SKIP() << ::install::LeftOut(difference); \
  } while (false)
