// Replaces one Windows function, with its real signature. Used by tables/ and by Rig::On.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <functional>
#include <string>

#include "rig/call.h"

namespace rig {

/// Replaces the function `Fn`: the library's import slots point to its Thunk.
template <auto Fn, class Type = decltype(Fn)>
class Function;

template <auto Fn, class Result, class... Arguments>
class Function<Fn, Result (*)(Arguments...)> {
 public:
  /// A pointer to the function.
  using Type = Result (*)(Arguments...);

  /// Adds its declaration to the tables; HX_FUNCTION calls this.
  static Declaration& Declare(const char* module, const char* name, Failing failing) {
    declaration_ =
        &declarations::Add(new Declaration(module, name, failing, reinterpret_cast<const void*>(&Thunk)));
    return *declaration_;
  }

  /// Returns its declaration. Throws std::logic_error if there is none.
  static Declaration& GetDeclaration() {
    if (declaration_ == nullptr) {
      throw std::logic_error("a function is used that no line of tests/rig/tables/*.cpp declares");
    }
    return *declaration_;
  }

  /// Returns the real function; null if the system does not have it.
  static Type Real() { return reinterpret_cast<Type>(GetDeclaration().Real()); }

  /// Routes the calls to `answer`.
  static void Answer(std::function<Result(Arguments...)> answer) {
    answer_ = std::move(answer);
    GetDeclaration().behaviour = Declaration::Behaviour::kAnswered;
  }

 private:
  /// The function that the library calls.
  static Result Thunk(Arguments... arguments) {
    return PassCall<Result>(*declaration_, __builtin_return_address(0), &Route, arguments...);
  }

  /// Routes a call to its answer, to the real function, or to Refuse.
  static Result Route(Arguments... arguments) {
    const Rig& rig = *Rig::Current();
    switch (declaration_->behaviour) {
      case Declaration::Behaviour::kAnswered:
        return answer_(arguments...);
      case Declaration::Behaviour::kReal:
        return CallReal(arguments...);
      default:
        if (rig.GetPolicy() == Policy::kReal || declaration_->IsRealByDefault()) {
          return CallReal(arguments...);
        }
        return Refuse(arguments...);
    }
  }

  /// Calls the real function; fails the test if the system does not have it.
  static Result CallReal(Arguments... arguments) {
    Type real = Real();
    if (real == nullptr) {
      Fail(declaration_->Name() + " must be the real function, which this system does not have");
      return FailingResult();
    }
    return real(arguments...);
  }

  /// Fails the test because nobody answers the call.
  static Result Refuse(Arguments... arguments) {
    const uint64_t words[] = {ToWord(arguments)..., 0};
    Rig& rig = *Rig::Current();
    rig.Unexpected(*declaration_, PrintCall(*declaration_, rig, words, arguments...));
    return FailingResult();
  }

  /// Sets the declared last error and returns the declared failing result.
  static Result FailingResult() {
    if constexpr (!std::is_void_v<Result>) {
      const Failing& failing = declaration_->HowItFails();
      if (failing.setsLastError) {
        SetLastError(failing.lastError);
      }
      return FromWord<Result>(failing.result);
    }
  }

  static inline Declaration* declaration_ = nullptr;
  static inline std::function<Result(Arguments...)> answer_;
};

/// Replaces a function that takes a buffer, a format text and variable arguments. Its answers and its real
/// counterpart (wvsprintfW for wsprintfW) take a va_list instead of the variable arguments. The trace shows
/// the arguments as the format text describes them.
template <auto Fn, class Result, class Buffer, class Format>
class Function<Fn, Result (*)(Buffer, Format, ...)> {
 public:
  /// A pointer to the counterpart.
  using ListType = Result (*)(Buffer, Format, va_list);

  /// Adds its declaration to the tables; HX_VARIADIC calls this.
  static Declaration& Declare(const char* module, const char* name, ListType real, Failing failing) {
    real_ = real;
    declaration_ =
        &declarations::Add(new Declaration(module, name, failing, reinterpret_cast<const void*>(&Thunk)));
    return *declaration_;
  }

  /// Returns its declaration. Throws std::logic_error if there is none.
  static Declaration& GetDeclaration() {
    if (declaration_ == nullptr) {
      throw std::logic_error("a function is used that no line of tests/rig/tables/*.cpp declares");
    }
    return *declaration_;
  }

  /// Returns the real counterpart.
  static ListType Real() { return real_; }

  /// Routes the calls to `answer`.
  static void Answer(std::function<Result(Buffer, Format, va_list)> answer) {
    answer_ = std::move(answer);
    GetDeclaration().behaviour = Declaration::Behaviour::kAnswered;
  }

 private:
  /// The function that the library calls.
  static Result Thunk(Buffer buffer, Format format, ...) {
    VariableArguments variable{format, {}};
    va_start(variable.list, format);
    Result result =
        PassCall<Result>(*declaration_, __builtin_return_address(0), &Route, buffer, format, variable);
    va_end(variable.list);
    return result;
  }

  /// Routes a call to its answer or to the real counterpart.
  static Result Route(Buffer buffer, Format format, VariableArguments variable) {
    return declaration_->behaviour == Declaration::Behaviour::kAnswered
               ? answer_(buffer, format, variable.list)
               : real_(buffer, format, variable.list);
  }

  static inline Declaration* declaration_ = nullptr;
  static inline ListType real_ = nullptr;
  static inline std::function<Result(Buffer, Format, va_list)> answer_;
};

template <auto Fn, class Answer>
void Rig::On(Answer answer) {
  Function<Fn>::Answer(std::move(answer));
}

template <auto Fn>
void Rig::UseReal() {
  Function<Fn>::GetDeclaration().behaviour = Declaration::Behaviour::kReal;
}

}  // namespace rig

/// Declares a function in one line: the module that exports it, its name (the signature comes from the
/// Windows header) and how it fails. Setters of Declaration may follow.
#define HX_FUNCTION(Module, Name, ...) HX_FUNCTION_NAMED(Module, #Name, Name, __VA_ARGS__)

/// Does the same for an export whose name differs from the name of its C declaration `Type`.
#define HX_FUNCTION_NAMED(Module, Export, Type, ...)                 \
  [[maybe_unused]] static ::rig::Declaration& declarationOf_##Type = \
      ::rig::Function<&::Type>::Declare(#Module, Export, __VA_ARGS__)

/// Does the same for a function of the type that the second Function template describes. `Real` is the real
/// counterpart with a va_list; it is called if nobody answers.
#define HX_VARIADIC(Module, Name, Real, ...)                         \
  [[maybe_unused]] static ::rig::Declaration& declarationOf_##Name = \
      ::rig::Function<&::Name>::Declare(#Module, #Name, &::Real, __VA_ARGS__)
