// Texts that must not be written anywhere: the passwords of accounts. Used by worlds that know such a text,
// and by whatever writes traces and failures.
#pragma once

#include <string>
#include <string_view>

namespace rig {

/// What stands in the place of a secret, in traces, messages, set properties and failures alike.
inline constexpr char kSecretMark[] = "<password>";

/// Keeps texts secret for as long as it lives.
class Secret {
 public:
  /// Keeps `text` secret.
  explicit Secret(std::string_view text);
  ~Secret();
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;

  /// `text` with the mark in the place of every secret in it.
  static std::string Masked(std::string text);

 private:
  std::string text_;
};

}  // namespace rig
