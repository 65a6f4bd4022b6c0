// The rig of one run: it receives the library's calls. Used by the fixtures, the worlds and the sweep.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rig/declaration.h"
#include "rig/failures.h"
#include "rig/ledger.h"
#include "rig/trace.h"

namespace rig {

class Library;

/// What happens to a call that neither the test nor the world answers.
enum class Policy {
  kAnswered,  ///< It fails the test (unless the function is declared real).
  kReal,      ///< It goes to the real function.
};

/// Sees every call that leaves the library, also those of COM fakes. `words` are the arguments' bits.
class Watcher {
 public:
  virtual ~Watcher() = default;
  /// Called first, before anything of the call is written.
  virtual void Before(const Declaration& declaration, const uint64_t* words) = 0;
  /// Called in place of the answer. Returns the bits of the result, or nothing if the call shall be answered.
  /// May set the last error.
  virtual std::optional<uint64_t> Instead(const Declaration& declaration, const uint64_t* words) = 0;
  /// Called last, with the last error that the call left. `line` is the call with its result as the trace
  /// shows it; empty for a call that the trace leaves out.
  virtual void After(const Declaration& declaration, const uint64_t* words, uint64_t result,
                     const std::string& line) = 0;
};

/// One call as the sweep counts it.
struct CountedCall {
  std::string name;  ///< The function's name.
  std::string text;  ///< The call with its arguments, as in a trace.
};

/// Sits between one copy of the library and Windows. One at a time. The constructor resets what earlier
/// tests said about functions.
class Rig {
 public:
  /// Makes this the current rig.
  explicit Rig(Policy policy);
  ~Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  /// Returns the current rig, or null.
  static Rig* Current();

  /// Points every import slot of the library to the rig. An import that no line of the tables declares fails
  /// the test.
  void Attach(Library& library);

  /// Routes the function to `answer`, a callable with the function's own signature, instead of the world's
  /// answer:
  ///   rig.On<::GetVersion>([] { return DWORD{6}; });
  template <auto Fn, class Answer>
  void On(Answer answer);
  /// Routes the function to the real one.
  template <auto Fn>
  void UseReal();
  /// Does the same by name.
  void UseReal(std::string_view name);
  /// Shows a quiet function's calls in the trace too.
  void MakeLoud(std::string_view name);

  /// The calls so far.
  Trace trace;
  /// The resources that the library holds.
  Ledger ledger;
  /// True while calls are written to the trace.
  bool tracing = true;
  /// Sees every call; null for none.
  Watcher* watcher = nullptr;
  /// True if the outputs of a call that failed are filled with rubbish.
  bool spoils = true;
  /// The session handle that must be passed to the installer's functions.
  unsigned long session = 0;

  /// Starts counting the calls that can fail. The call with number `failing` (from 0) is made to fail; -1
  /// for none.
  void BeginCounting(int failing = -1);
  /// Stops counting.
  void EndCounting() { counting_ = false; }
  /// Returns the calls counted since BeginCounting.
  const std::vector<CountedCall>& Counted() const { return counted_; }
  /// True if the call that had to fail was reached.
  bool FailureApplied() const { return failureApplied_; }

  // The members below serve the dispatch of calls (call.h).

  /// True if this function's calls are written to the trace.
  bool Traces(const Declaration& declaration) const {
    return tracing && (!declaration.IsQuiet() || declaration.loud);
  }
  /// True while calls are counted.
  bool IsCounting() const { return counting_; }
  /// Returns what happens to a call that nobody answers.
  Policy GetPolicy() const { return policy_; }
  /// Counts a call; returns true if it must fail.
  bool CountCall(const Declaration& declaration, std::string text);
  /// Fails the test because nobody answers this call.
  void Unexpected(const Declaration& declaration, const std::string& call);
  /// Checks that the arguments that must be live resources are live.
  void CheckUses(const Declaration& declaration, const uint64_t* words);
  /// Records what the call acquired and released. `sizes` are the sizes in bytes of what the pointers point
  /// to.
  void Book(const Declaration& declaration, const uint64_t* words, const size_t* sizes, uint64_t result,
            const void* caller);
  /// Stores rubbish in the outputs of a call that failed, because nobody may read them.
  static void Spoil(const Declaration& declaration, const uint64_t* words, const size_t* sizes);

 private:
  Policy policy_;
  bool counting_ = false;
  int failing_ = -1;
  bool failureApplied_ = false;
  std::vector<CountedCall> counted_;
};

}  // namespace rig
