// Where the rig reports what it finds wrong. Used by every part of the rig and by its self-tests.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rig {

/// Reports that something went wrong: fails the running test without ending it, or, while a
/// FailureCapture lives, only notes the text there.
void Fail(const std::string& text);

/// Collects the rig's failures for as long as it lives, instead of failing the test. The sweep uses it
/// to say which of its runs failed, the self-tests to see that a fault is found. They nest: the
/// innermost one collects.
class FailureCapture {
 public:
  /// Begins to collect.
  FailureCapture();
  ~FailureCapture();
  FailureCapture(const FailureCapture&) = delete;
  FailureCapture& operator=(const FailureCapture&) = delete;

  /// Everything reported so far, in order.
  const std::vector<std::string>& Texts() const { return texts_; }
  /// Whether some report holds `part`.
  bool Contains(std::string_view part) const;
  /// All reports, one a line.
  std::string Joined() const;

 private:
  friend void Fail(const std::string& text);
  std::vector<std::string> texts_;
  FailureCapture* outer_;
};

}  // namespace rig
