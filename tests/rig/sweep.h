// Runs an action once per call that it makes, with that call failing. Used through the fixtures'
// FailEachCall.
#pragma once

#include <windows.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "rig/scene.h"

namespace rig {

/// One run of a sweep, for the caller's own checks.
struct SweepRun {
  size_t index;      ///< Which call failed, from 0.
  std::string name;  ///< The function that failed.
  std::string call;  ///< Its call with the arguments.
  UINT result;       ///< What the action returned.
  Scene& scene;      ///< Trace, log, ledger, world as the action left them.
};

/// What a sweep allows and checks beyond the ledger, crashes and unexpected calls.
struct SweepOptions {
  /// The results that the action may return.
  std::set<UINT> results = {0};
  /// Called after every run with a failing call.
  std::function<void(const SweepRun&)> check = nullptr;
};

/// Runs `action` once plainly and then once per call that can fail, that call failing in its declared way;
/// every run in a fresh scene that `arrange` prepares. Fails the test when a run crashes, leaks, makes an
/// unexpected call, returns a result not allowed, or does not reach the call that was to fail. Returns the
/// number of calls that were made to fail.
size_t Sweep(const std::string& file, Policy policy, const std::function<void(World&)>& arrange,
             const std::function<UINT(Scene&)>& action, const SweepOptions& options);

}  // namespace rig
