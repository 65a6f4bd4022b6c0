// Texts that must not be written anywhere: the passwords of accounts. Used by the part of the world that
// knows such a text, by everything that writes traces and failures, and by tests that look for such a text in
// memory.
#pragma once

#include <windows.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace rig {

/// Replaces a secret in traces, messages, set properties and failures.
inline constexpr char kSecretMark[] = "<password>";

/// Keeps texts secret for as long as it lives.
class Secret {
 public:
  /// Keeps `text` secret.
  explicit Secret(std::string_view text);
  ~Secret();
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  /// `text` with the mark instead of every secret in it.
  static std::string Masked(std::string text);

 private:
  std::string text_;
};

/// What memory holds of a secret, and where, in words; an empty text for nothing.
using SecretFinder = std::function<std::string(std::string_view memory)>;

/// Runs `action` on a stack of its own and without a trace. Fails the test if it does not return 0, and if
/// `find` finds something in what it leaves: on that stack, or in a heap block that the loaded library gave
/// back or let grow meanwhile. Returns the number of these blocks. The blocks must be of the guarded heap.
size_t RunAndSearch(const std::function<UINT()>& action, const SecretFinder& find);

}  // namespace rig
