#include "rig/world/windows.h"

#include "rig/function.h"

namespace rig {
namespace {

// The first handle value.
constexpr uintptr_t kFirstHandle = 0x310020;
constexpr uintptr_t kStep = 2;

HWND HandleOf(size_t index) {
  return reinterpret_cast<HWND>(kFirstHandle + index * kStep);
}

bool IsSame(const std::string& a, const char* b) {
  return CompareStringA(LOCALE_INVARIANT, NORM_IGNORECASE, a.c_str(), -1, b, -1) == CSTR_EQUAL;
}

}  // namespace

Window& Windows::Open(const std::string& windowClass, const std::string& title) {
  rig_.ledger.Call(ToWord(HandleOf(windows_.size())), "window:" + windowClass);
  Window& window = windows_.emplace_back();
  window.windowClass = windowClass;
  window.title = title;
  return window;
}

HWND Windows::Find(const char* windowClass, const char* title) {
  if (windowClass == nullptr || title == nullptr) {
    Fail("FindWindowA is called without class or title; the world does not list its windows");
    return nullptr;
  }
  for (size_t index = 0; index < windows_.size(); ++index) {
    Window& window = windows_[index];
    if (window.isGone || !IsSame(window.windowClass, windowClass) || !IsSame(window.title, title)) {
      continue;
    }
    if (window.isGoing && window.lingers-- == 0) {
      window.isGone = true;
      continue;
    }
    return HandleOf(index);
  }
  SetLastError(ERROR_FILE_NOT_FOUND);
  return nullptr;
}

bool Windows::Deliver(HWND handle, bool isPosted, UINT message, WPARAM wide, LPARAM extra) {
  for (size_t index = 0; index < windows_.size(); ++index) {
    Window& window = windows_[index];
    if (HandleOf(index) != handle || window.isGone) {
      continue;
    }
    window.got.push_back((isPosted ? "post " : "send ") + std::to_string(message) + " " +
                         std::to_string(wide) + " " + std::to_string(extra));
    window.isGoing |= message == window.closesOn && message != Window::kNone && isPosted == window.isPosted;
    return true;
  }
  SetLastError(ERROR_INVALID_WINDOW_HANDLE);
  return false;
}

void Windows::Install() {
  rig_.On<::FindWindowA>(
      [this](const char* windowClass, const char* title) { return Find(windowClass, title); });
  rig_.On<::SendMessageA>([this](HWND window, UINT message, WPARAM wide, LPARAM extra) -> LRESULT {
    Deliver(window, false, message, wide, extra);
    return 0;
  });
  rig_.On<::PostMessageA>([this](HWND window, UINT message, WPARAM wide, LPARAM extra) -> BOOL {
    return Deliver(window, true, message, wide, extra);
  });
}

}  // namespace rig
