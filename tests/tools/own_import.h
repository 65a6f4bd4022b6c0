// Replaces a function of Windows for the calls of this test program itself, among them those that hxrun makes
// to look at the machine. Used for answers that the Windows of these tests does not give.
#pragma once

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace hxrun_test {

/// Returns the import slot of this program for the function with this name. Throws std::runtime_error if the
/// program does not import it.
void** OwnImportSlot(const std::string& name);

/// Replaces the function `Fn` while this object lives. Only one object for a function at a time.
template <auto Fn, class Type = decltype(Fn)>
class OwnImport;

template <auto Fn, class Result, class... Arguments>
class OwnImport<Fn, Result (*)(Arguments...)> {
 public:
  /// A pointer to the function.
  using Type = Result (*)(Arguments...);

  /// Routes the calls of `name`, which is the exported name of `Fn`, to `answer`.
  template <class Answer>
  OwnImport(const std::string& name, Answer answer) : slot_(OwnImportSlot(name)) {
    real_ = reinterpret_cast<Type>(*slot_);
    answer_ = std::move(answer);
    Put(reinterpret_cast<void*>(&Thunk));
  }
  ~OwnImport() { Put(reinterpret_cast<void*>(real_)); }
  OwnImport(const OwnImport&) = delete;
  OwnImport& operator=(const OwnImport&) = delete;

  /// Calls the real function.
  static Result Real(Arguments... arguments) { return real_(arguments...); }

 private:
  static Result Thunk(Arguments... arguments) { return answer_(arguments...); }

  void Put(void* function) {
    DWORD before = 0;
    VirtualProtect(slot_, sizeof *slot_, PAGE_READWRITE, &before);
    *slot_ = function;
    VirtualProtect(slot_, sizeof *slot_, before, &before);
  }

  static inline Type real_ = nullptr;
  static inline std::function<Result(Arguments...)> answer_;
  void** slot_;
};

}  // namespace hxrun_test
