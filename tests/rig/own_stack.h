// Runs work on a separate stack that can be searched afterwards. Used by tests that look for what an action
// leaves in memory.
#pragma once

#include <windows.h>

#include <exception>
#include <functional>
#include <string_view>

namespace rig {

/// Runs work on a fresh stack, which stays as the work left it. One at a time per thread.
class OwnStack {
 public:
  /// Creates the stack. Throws std::runtime_error if the system has no memory for it.
  OwnStack();
  ~OwnStack();
  OwnStack(const OwnStack&) = delete;
  OwnStack& operator=(const OwnStack&) = delete;

  /// Runs `work`, once; rethrows what it throws.
  void Run(const std::function<void()>& work);
  /// Returns the content of the stack, from its lowest byte in use to its end.
  std::string_view Content() const { return {low_, static_cast<size_t>(high_ - low_)}; }

 private:
  /// The first function on the stack.
  static void WINAPI Enter(void* self);

  void* outside_ = nullptr;
  void* inside_ = nullptr;
  const std::function<void()>* work_ = nullptr;
  std::exception_ptr thrown_;
  const char* low_ = nullptr;
  const char* high_ = nullptr;
};

}  // namespace rig
