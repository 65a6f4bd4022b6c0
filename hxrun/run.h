// One run of an entry point: what hxrun sees of the library's calls, and what it does with those that change
// the machine. Used by the main function.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hxrun/effects.h"
#include "rig/rig.h"
#include "rig/secrets.h"

namespace hxrun {

/// The exit statuses of hxrun.
enum ExitStatus : unsigned {
  kExitDone = 0,       ///< the action returned 0
  kExitFailed = 1,     ///< hxrun itself failed
  kExitUsage = 2,      ///< a mistake in the command line, or a change that is not allowed
  kExitOtherCode = 3,  ///< the action returned something else
  kExitDependent = 4,  ///< a dry run ended before the action did
};

/// What happens to calls that change the machine.
enum class ChangeRule : uint8_t {
  kAllow,   ///< They are made.
  kAsk,     ///< The first one asks; without a yes the run ends.
  kRefuse,  ///< The first one ends the run.
  kRecord,  ///< They are recorded and answered as a success: a dry run.
};

/// Ends the process with everything printed that was seen so far. Never returns.
using EndOfRun = std::function<void(ExitStatus status, const std::string& text)>;

/// A change of a dry run.
struct RecordedChange {
  std::string text;  ///< what it is, after "would"; its details on more lines; its error if it would fail
  bool fails;        ///< true if it would fail
};

/// Watches the calls of one run.
class RunWatcher : public rig::Watcher {
 public:
  /// `print` gets each line of the trace; null for none. `ask` asks the user a question and returns true for
  /// a yes. `end` must not return.
  RunWatcher(ChangeRule rule, std::function<void(const std::string&)> print,
             std::function<bool(const std::string&)> ask, EndOfRun end);

  void Before(const rig::Declaration& declaration, const uint64_t* words) override;
  std::optional<uint64_t> Instead(const rig::Declaration& declaration, const uint64_t* words) override;
  void After(const rig::Declaration& declaration, const uint64_t* words, uint64_t result,
             const std::string& line) override;

  /// The changes that a dry run recorded, in order.
  const std::vector<RecordedChange>& Recorded() const { return recorded_; }

  /// Ends a dry run because the library uses an object that the last recorded change would have made.
  void EndUnmade(const std::string& object);
  /// Keeps a text out of everything that is printed, also as the trace quotes it.
  void KeepSecret(std::wstring_view text);

 private:
  /// Ends a dry run because what follows depends on the recorded change with this number, for this reason.
  void EndDependent(const std::string& reason, size_t change);
  /// Ends a dry run: `call` asks for what the recorded change with this number would have changed.
  void EndAsking(const std::string& call, size_t change);
  /// Asks for permission before the first change; ends the run without it.
  void AskFor(const std::string& change);
  /// Answers a call of a dry run, or returns nothing if the call shall be made.
  std::optional<uint64_t> InDryRun(const rig::Declaration& declaration, const Row& row, const Call& call,
                                   bool isChange);
  /// Looks whether a change of a dry run could begin, and answers it.
  uint64_t Change(const rig::Declaration& declaration, const Row& row, const Call& call);
  /// Adds a change to the list, with the error with which it would fail.
  void AddToList(const Row& row, const Call& call, std::optional<uint32_t> error);
  /// Records a change and returns the result of its success.
  uint64_t Record(const rig::Declaration& declaration, const Row& row, const Call& call);
  /// Remembers what the handle that a call opened stands for.
  void NameHandle(const std::string& function, const Call& call, uint64_t result);

  ChangeRule rule_;
  std::function<void(const std::string&)> print_;
  std::function<bool(const std::string&)> ask_;
  EndOfRun end_;
  Names names_;
  Changes changes_;
  std::vector<RecordedChange> recorded_;
  std::vector<std::string> details_;
  std::vector<std::unique_ptr<rig::Secret>> secrets_;
};

}  // namespace hxrun
