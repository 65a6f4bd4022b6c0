// Texts that must not be written anywhere: the passwords of accounts. The part of the world that knows such
// a text declares it here. Also used by all code that writes traces and failures, and by tests that search
// memory for such a text.
#pragma once

#include <windows.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace rig {

/// Replaces a secret in traces, messages, set properties and failures.
inline constexpr char kSecretMark[] = "<password>";

/// Keeps a text secret for as long as it lives.
class Secret {
 public:
  /// Where a secret is hidden.
  enum class Where : uint8_t {
    kEverywhere,  ///< Wherever it is in a text.
    kWholeValue,  ///< Only where it is all that is between two quotation marks.
  };
  /// Starts keeping `text` secret.
  explicit Secret(std::string_view text, Where where = Where::kEverywhere);
  ~Secret();
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  /// Returns `text` with every secret in it replaced by the mark.
  static std::string Masked(std::string text);

 private:
  std::string text_;
  Where where_;
};

/// Describes what `memory` contains of a secret, and where; empty if nothing.
using SecretFinder = std::function<std::string(std::string_view memory)>;

/// Runs `action` on a separate stack and without a trace. Fails the test if it does not return 0. Also fails
/// the test if `find` finds something on that stack, or in a heap block that the library freed or
/// reallocated meanwhile. Returns the number of these blocks, which must be of the guarded heap.
size_t RunAndSearch(const std::function<UINT()>& action, const SecretFinder& find);

}  // namespace rig
