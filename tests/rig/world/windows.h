// The windows of other programs. Part of the world.
#pragma once

#include <windows.h>

#include <deque>
#include <string>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// One window, as a test arranges it and inspects it afterwards.
struct Window {
  /// Stands for no message.
  static constexpr UINT kNone = 0;

  std::string windowClass;       ///< Its class.
  std::string title;             ///< Its title.
  UINT closesOn = WM_CLOSE;      ///< The message that closes it; kNone for a window that stays.
  unsigned lingers = 0;          ///< How often it is still found after that message.
  bool isPosted = false;         ///< True if that message must be posted, false if it must be sent.
  std::vector<std::string> got;  ///< The messages that reached it: "send 16 0 0", "post 22 1 0".
  bool isGoing = false;          ///< True once the closing message has arrived.
  bool isGone = false;           ///< True once the window is closed.
};

/// Windows by class and title, ignoring case as the system does; initially there are none.
class Windows {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Windows(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Opens a window. The trace shows it as "window:" and then `windowClass`.
  Window& Open(const std::string& windowClass, const std::string& title);

 private:
  /// Answers FindWindowA.
  HWND Find(const char* windowClass, const char* title);
  /// Delivers a message to the window of this handle. False, with the last error set, if there is none.
  bool Deliver(HWND handle, bool isPosted, UINT message, WPARAM wide, LPARAM extra);

  Rig& rig_;
  std::deque<Window> windows_;
};

}  // namespace rig
