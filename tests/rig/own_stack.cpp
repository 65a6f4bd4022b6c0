#include "rig/own_stack.h"

#include <stdexcept>
#include <string>

namespace rig {
namespace {

// More than any action and the rig need together; all of it is committed from the start.
constexpr size_t kStackBytes = size_t{512} << 10;

}  // namespace

OwnStack::OwnStack() : outside_(ConvertThreadToFiber(nullptr)) {
  inside_ = outside_ == nullptr ? nullptr : CreateFiberEx(kStackBytes, 2 * kStackBytes, 0, &Enter, this);
  if (inside_ == nullptr) {
    throw std::runtime_error("cannot create a stack, error " + std::to_string(GetLastError()));
  }
}

OwnStack::~OwnStack() {
  DeleteFiber(inside_);
  ConvertFiberToThread();
}

void OwnStack::Run(const std::function<void()>& work) {
  work_ = &work;
  SwitchToFiber(inside_);
  if (thrown_ != nullptr) {
    std::rethrow_exception(thrown_);
  }
}

void OwnStack::Enter(void* self) {
  auto& stack = *static_cast<OwnStack*>(self);
  try {
    (*stack.work_)();
  } catch (...) {
    stack.thrown_ = std::current_exception();
  }
  const auto* tib = reinterpret_cast<const NT_TIB*>(NtCurrentTeb());
  stack.low_ = static_cast<const char*>(tib->StackLimit);
  stack.high_ = static_cast<const char*>(tib->StackBase);
  // The first function of a stack must not return.
  SwitchToFiber(stack.outside_);
}

}  // namespace rig
