// Reports the faults that the rig finds. Used by every part of the rig and by its own tests.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rig {

/// Reports a fault. While a FailureCapture lives, the text is only recorded there; otherwise OnFault gets it.
void Fail(const std::string& text);

/// What a fault does. Each program that uses the rig defines it: in the tests it fails the running test
/// without ending it (main.cpp). Secrets in the text are masked already.
void OnFault(const std::string& text);

/// Collects the rig's failures for as long as it lives, instead of failing the test. The sweep uses it to
/// say which of its runs failed; the rig's own tests use it to check that a fault is found. Captures nest:
/// the innermost one collects.
class FailureCapture {
 public:
  /// Starts collecting.
  FailureCapture();
  ~FailureCapture();
  FailureCapture(const FailureCapture&) = delete;
  FailureCapture& operator=(const FailureCapture&) = delete;

  /// Returns everything reported so far, in order.
  const std::vector<std::string>& Texts() const { return texts_; }
  /// True if any report contains `part`.
  bool Contains(std::string_view part) const;
  /// Returns all reports, one per line.
  std::string Joined() const;

 private:
  friend void Fail(const std::string& text);
  std::vector<std::string> texts_;
  FailureCapture* outer_;
};

}  // namespace rig
