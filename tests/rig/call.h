// Takes one call that leaves the library through the rig. Used by function.h and com.h.
#pragma once

#include <windows.h>

#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "rig/facts.h"
#include "rig/print.h"
#include "rig/rig.h"

namespace rig {

/// Returns the size in bytes of what a pointer argument points to; 0 if unknown.
template <class T>
constexpr size_t PointeeSize() {
  using Pointee = std::remove_pointer_t<T>;
  if constexpr (!std::is_pointer_v<T> || std::is_void_v<Pointee> || std::is_function_v<Pointee>) {
    return 0;
  } else if constexpr (requires { sizeof(Pointee); }) {
    return sizeof(Pointee);
  } else {
    return 0;
  }
}

/// Converts the bits to an integer or a pointer.
template <class T>
T FromWord(uint64_t word) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<T>(static_cast<uintptr_t>(word));
  } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    return static_cast<T>(word);
  } else {
    return T{};
  }
}

/// Returns one argument as the trace shows it.
template <class T>
std::string PrintArgument(const Declaration& declaration, const Rig& rig, size_t index, const T& value,
                          const uint64_t* words) {
  if (index == 0 && declaration.TakesSession() && static_cast<uint32_t>(words[0]) == rig.session) {
    return "session";
  }
  if (const Kind* kind = declaration.KindOf(index)) {
    std::string name = rig.ledger.NameOf(*kind, words[index]);
    if (!name.empty()) {
      return name;
    }
  }
  if (const Declaration::Counted* counted = declaration.CountOf(index)) {
    return PrintCounted(words[index], static_cast<int32_t>(words[counted->count]), PointeeSize<T>(),
                        counted->text);
  }
  if constexpr (std::is_same_v<T, wchar_t*>) {
    if (declaration.HasTextArguments()) {
      return Print<const wchar_t*>(rig.ledger, value, false);
    }
  }
  return Print<std::remove_cv_t<T>>(rig.ledger, value, declaration.IsHex(index));
}

/// Returns a call without its result, as the trace shows it.
template <class... Arguments>
std::string PrintCall(const Declaration& declaration, const Rig& rig, const uint64_t* words,
                      const Arguments&... arguments) {
  std::string text = declaration.Name() + "(";
  [[maybe_unused]] size_t index = 0;
  ((text += (index == 0 ? "" : ", ") + PrintArgument(declaration, rig, index, arguments, words), ++index),
   ...);
  return text + ")";
}

/// Returns the name of the resource that a call returned, or the plain result as text.
template <class Result>
std::string PrintResult(const Declaration& declaration, const Rig& rig, const Result& result) {
  for (const Declaration::Resource& acquired : declaration.Acquired()) {
    if (acquired.place.where == Place::Where::kResult) {
      std::string name = rig.ledger.NameOf(*acquired.kind, ToWord(result));
      if (!name.empty()) {
        return name;
      }
    }
  }
  return Print(rig.ledger, result, false);
}

/// Takes one call through the rig: trace, sweep, answer, ledger. `answer(arguments...)` runs unless the
/// sweep makes the call fail. The last error stays as the answer left it.
template <class Result, class Answer, class... Arguments>
Result PassCall(const Declaration& declaration, const void* caller, const Answer& answer,
                Arguments... arguments) {
  const DWORD errorBefore = GetLastError();
  Rig& rig = *Rig::Current();
  const std::array<uint64_t, sizeof...(Arguments) + 1> words = {ToWord(arguments)...};
  constexpr std::array<size_t, sizeof...(Arguments) + 1> sizes = {PointeeSize<Arguments>()...};
  if (rig.watcher != nullptr) {
    rig.watcher->Before(declaration, words.data());
  }
  const bool traces = rig.Traces(declaration);
  const bool counts = rig.IsCounting() && declaration.CanFail();
  std::string text;
  if (traces || counts) {
    text = PrintCall(declaration, rig, words.data(), arguments...);
  }
  const size_t line = traces ? rig.trace.Begin(text) : 0;
  rig.CheckUses(declaration, words.data());
  ObserveCall(declaration, words.data());
  const bool fails = counts && rig.CountCall(declaration, text);
  if constexpr (std::is_void_v<Result>) {
    SetLastError(errorBefore);
    if (!fails && !(rig.watcher != nullptr && rig.watcher->Instead(declaration, words.data()))) {
      answer(arguments...);
    }
    const DWORD errorAfter = GetLastError();
    rig.Book(declaration, words.data(), sizes.data(), 0, caller);
    if (rig.watcher != nullptr) {
      SetLastError(errorAfter);
      rig.watcher->After(declaration, words.data(), 0, text);
    }
    SetLastError(errorAfter);
  } else {
    Result result;
    DWORD errorAfter = errorBefore;
    if (fails) {
      const Failing& failing = declaration.HowItFails();
      result = FromWord<Result>(failing.result);
      errorAfter = failing.setsLastError ? failing.lastError : errorBefore;
      Rig::Spoil(declaration, words.data(), sizes.data());
    } else {
      SetLastError(errorBefore);
      std::optional<uint64_t> instead;
      if (rig.watcher != nullptr) {
        instead = rig.watcher->Instead(declaration, words.data());
      }
      result = instead ? FromWord<Result>(*instead) : answer(arguments...);
      errorAfter = GetLastError();
      rig.Book(declaration, words.data(), sizes.data(), ToWord(result), caller);
    }
    if (traces) {
      const std::string outcome =
          " = " + PrintResult(declaration, rig, result) + (fails ? " (made to fail)" : "");
      rig.trace.End(line, outcome);
      text += outcome;
    }
    if (rig.watcher != nullptr) {
      SetLastError(errorAfter);
      rig.watcher->After(declaration, words.data(), ToWord(result), text);
    }
    SetLastError(errorAfter);
    return result;
  }
}

}  // namespace rig
