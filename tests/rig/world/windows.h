// The windows of other programs. Part of a world.
#pragma once

#include <windows.h>

#include <deque>
#include <string>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// One window, as a test arranges it and finds it afterwards.
struct Window {
  /// No message at all.
  static constexpr UINT kNone = 0;

  std::string windowClass;       ///< Its class.
  std::string title;             ///< Its title.
  UINT closesOn = WM_CLOSE;      ///< The message that makes it go; kNone for a window that stays.
  unsigned lingers = 0;          ///< How many times it is found after that message.
  bool isPosted = false;         ///< That message must be posted; otherwise it must be sent.
  std::vector<std::string> got;  ///< The messages that reached it: "send 16 0 0", "post 22 1 0".
  bool isGoing = false;          ///< The message that makes it go has come.
  bool isGone = false;           ///< It is no more.
};

/// Windows by class and title (any letter case, as the system compares them); there is none at first.
class Windows {
 public:
  /// The part of the world that belongs to this rig.
  explicit Windows(Rig& rig) : rig_(rig) {}
  /// Sends its functions here.
  void Install();

  /// Opens a window. In the trace it reads as `windowClass` with "window:" in front.
  Window& Open(const std::string& windowClass, const std::string& title);

 private:
  /// Answers FindWindowA.
  HWND Find(const char* windowClass, const char* title);
  /// Takes a message to the window of this handle. False, with the last error set, when there is none.
  bool Deliver(HWND handle, bool isPosted, UINT message, WPARAM wide, LPARAM extra);

  Rig& rig_;
  std::deque<Window> windows_;
};

}  // namespace rig
