#include "rig/failures.h"

#include "rig/secrets.h"

namespace rig {
namespace {

FailureCapture* innermostCapture = nullptr;

}  // namespace

void Fail(const std::string& complaint) {
  const std::string text = Secret::Masked(complaint);
  if (innermostCapture != nullptr) {
    innermostCapture->texts_.push_back(text);
  } else {
    OnFault(text);
  }
}

FailureCapture::FailureCapture() : outer_(innermostCapture) {
  innermostCapture = this;
}

FailureCapture::~FailureCapture() {
  innermostCapture = outer_;
}

bool FailureCapture::Contains(std::string_view part) const {
  for (const std::string& text : texts_) {
    if (text.find(part) != std::string::npos) {
      return true;
    }
  }
  return false;
}

std::string FailureCapture::Joined() const {
  std::string all;
  for (const std::string& text : texts_) {
    all += all.empty() ? "" : "\n";
    all += text;
  }
  return all;
}

}  // namespace rig
