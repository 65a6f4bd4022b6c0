#include "rig/secrets.h"

#include <algorithm>
#include <vector>

namespace rig {
namespace {

// A text that is replaced, and what replaces it.
struct Replacement {
  std::string text;
  std::string by;

  bool operator==(const Replacement&) const = default;
};

std::vector<Replacement>& Kept() {
  static std::vector<Replacement> kept;
  return kept;
}

Replacement ReplacementOf(const std::string& text, Secret::Where where) {
  const std::string mark = where == Secret::Where::kWholeValue ? "\"" : "";
  return {mark + text + mark, mark + kSecretMark + mark};
}

}  // namespace

Secret::Secret(std::string_view text, Where where) : text_(text), where_(where) {
  Kept().push_back(ReplacementOf(text_, where_));
}

Secret::~Secret() {
  std::vector<Replacement>& kept = Kept();
  kept.erase(std::find(kept.begin(), kept.end(), ReplacementOf(text_, where_)));
}

std::string Secret::Masked(std::string text) {
  for (const auto& [secret, by] : Kept()) {
    for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
      text.replace(at, secret.size(), by);
      at += by.size();
    }
  }
  return text;
}

}  // namespace rig
