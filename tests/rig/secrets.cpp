#include "rig/secrets.h"

#include <algorithm>
#include <vector>

namespace rig {
namespace {

std::vector<std::string>& Kept() {
  static std::vector<std::string> kept;
  return kept;
}

}  // namespace

Secret::Secret(std::string_view text) : text_(text) {
  Kept().push_back(text_);
}

Secret::~Secret() {
  std::vector<std::string>& kept = Kept();
  kept.erase(std::find(kept.begin(), kept.end(), text_));
}

std::string Secret::Masked(std::string text) {
  for (const std::string& secret : Kept()) {
    for (size_t at = text.find(secret); at != std::string::npos; at = text.find(secret, at)) {
      text.replace(at, secret.size(), kSecretMark);
      at += sizeof kSecretMark - 1;
    }
  }
  return text;
}

}  // namespace rig
