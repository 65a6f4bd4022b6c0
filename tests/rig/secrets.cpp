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
  // The mark replaces itself, so that a text that is masked twice stays the same.
  const Replacement mark{kSecretMark, kSecretMark};
  std::string masked;
  for (size_t at = 0; at < text.size();) {
    const Replacement* longest = nullptr;
    const auto take = [&](const Replacement& one) {
      if (longest != nullptr && one.text.size() <= longest->text.size()) return;
      if (!one.text.empty() && text.compare(at, one.text.size(), one.text) == 0) longest = &one;
    };
    take(mark);
    for (const Replacement& one : Kept()) take(one);
    masked += longest == nullptr ? text.substr(at, 1) : longest->by;
    at += longest == nullptr ? 1 : longest->text.size();
  }
  return masked;
}

}  // namespace rig
