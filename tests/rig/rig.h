// The rig of one run: what the library's calls meet. Used by the fixtures, the worlds and the sweep.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "rig/declaration.h"
#include "rig/failures.h"
#include "rig/ledger.h"
#include "rig/trace.h"

namespace rig {

class Library;

/// What a call meets that neither the test nor the world answers.
enum class Policy {
  kAnswered,  ///< It fails the test (unless the function is declared real).
  kReal,      ///< It goes to the real function.
};

/// One call as the sweep counts it.
struct CountedCall {
  std::string name;  ///< The function's name.
  std::string text;  ///< The call with its arguments, as in a trace.
};

/// Stands between one copy of the library and Windows. One at a time; making it resets what tests said about
/// functions.
class Rig {
 public:
  /// Puts the rig in force.
  explicit Rig(Policy policy);
  ~Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  /// The rig that is in force, or null.
  static Rig* Current();

  /// Points every import slot of the library at the rig. An import that no line declares fails the test.
  void Attach(Library& library);

  /// Sends the function to `answer`, a callable with the function's own signature, instead of the world's
  /// answer:
  ///   rig.On<::GetVersion>([] { return DWORD{6}; });
  template <auto Fn, class Answer>
  void On(Answer answer);
  /// Sends the function to the real one.
  template <auto Fn>
  void UseReal();
  /// The same by name.
  void UseReal(std::string_view name);
  /// Writes a quiet function's calls to the trace too.
  void MakeLoud(std::string_view name);

  /// The calls so far.
  Trace trace;
  /// What the library holds.
  Ledger ledger;
  /// Calls are written to the trace.
  bool tracing = true;
  /// The session handle that functions of the installer must be given.
  unsigned long session = 0;

  /// Begins counting the calls that can fail; the call with number `failing` (from 0) is made to fail, none
  /// when -1.
  void BeginCounting(int failing = -1);
  /// Ends it.
  void EndCounting() { counting_ = false; }
  /// The calls counted since BeginCounting.
  const std::vector<CountedCall>& Counted() const { return counted_; }
  /// True if the call that had to fail was reached.
  bool FailureApplied() const { return failureApplied_; }

  // What follows serves the dispatch of calls (call.h).

  /// True if this function's calls are written to the trace.
  bool Traces(const Declaration& declaration) const {
    return tracing && (!declaration.IsQuiet() || declaration.loud);
  }
  /// True while calls are counted.
  bool IsCounting() const { return counting_; }
  /// What a call meets that nobody answers.
  Policy GetPolicy() const { return policy_; }
  /// Counts a call; returns true if it must fail.
  bool CountCall(const Declaration& declaration, std::string text);
  /// Fails the test because nobody answers this call.
  void Unexpected(const Declaration& declaration, const std::string& call);
  /// Checks that the arguments that must be live resources are.
  void CheckUses(const Declaration& declaration, const uint64_t* words);
  /// Books what the call acquired and released. `sizes` are the sizes of what the pointers point to.
  void Book(const Declaration& declaration, const uint64_t* words, const size_t* sizes, uint64_t result,
            const void* caller);
  /// Stores rubbish in the outputs of a call that failed: nobody may read them.
  static void Spoil(const Declaration& declaration, const uint64_t* words, const size_t* sizes);

 private:
  Policy policy_;
  bool counting_ = false;
  int failing_ = -1;
  bool failureApplied_ = false;
  std::vector<CountedCall> counted_;
};

}  // namespace rig
