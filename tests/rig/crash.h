// Turns a crash inside the library into a test failure. Used by everything that calls into the library.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

namespace rig {

/// Thrown in the test if a call into the library crashed, after the library's frames are gone. Ends the
/// test.
class LibraryCrash : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs `body(argument)`. Returns true if it finished. Returns false if it crashed (access violation,
/// illegal instruction, breakpoint, division, a stack that is used up) and describes the crash in `text`.
/// Nothing is unwound: what the interrupted frames owned is lost.
bool RunCatching(void (*body)(void*), void* argument, std::string& text);

/// Fails the test with `text` and throws LibraryCrash.
[[noreturn]] void ReportCrash(const std::string& text);

/// Calls `call()` and returns its result. A crash fails the test with a description and throws LibraryCrash.
template <class Call>
auto CallGuarded(Call&& call) {
  using Result = std::invoke_result_t<Call>;
  std::string text;
  if constexpr (std::is_void_v<Result>) {
    auto body = [](void* argument) { (*static_cast<std::remove_reference_t<Call>*>(argument))(); };
    if (!RunCatching(body, &call, text)) {
      ReportCrash(text);
    }
  } else {
    struct Packet {
      std::remove_reference_t<Call>* call;
      Result result;
    } packet{&call, Result{}};
    auto body = [](void* argument) {
      auto* inner = static_cast<Packet*>(argument);
      inner->result = (*inner->call)();
    };
    if (!RunCatching(body, &packet, text)) {
      ReportCrash(text);
    }
    return packet.result;
  }
}

}  // namespace rig
