#include "client/tool_windows.h"

namespace {

constexpr char kNetworkToolTitle[] = "Ostrel";
// How the network tools are asked to exit: their own message, and the command of their menu.
constexpr UINT kShutdownMessage = WM_USER + 1000;
constexpr WPARAM kShutdownCommand = 1001;

}  // namespace

int WaitWindowGone(const char* windowClass, const char* title) {
  DWORD deadline = GetTickCount() + kLongestWait;
  while (FindWindowA(windowClass, title)) {
    Sleep(kPollInterval);
    if (deadline < GetTickCount()) return 0;
  }
  return 1;
}

int CloseToolWindow(const char* windowClass, const char* title) {
  HWND window = FindWindowA(windowClass, title);
  if (!window) return 1;
  SendMessageA(window, WM_CLOSE, 0, 0);
  return WaitWindowGone(windowClass, title);
}

int CloseNetworkTool(const char* windowClass) {
  HWND window = FindWindowA(windowClass, kNetworkToolTitle);
  if (!window) return 1;
  SendMessageA(window, kShutdownMessage, 0, 0);
  if (WaitWindowGone(windowClass, kNetworkToolTitle)) return 1;
  PostMessageA(window, WM_ENDSESSION, TRUE, 0);
  if (WaitWindowGone(windowClass, kNetworkToolTitle)) return 1;
  SendMessageA(window, WM_COMMAND, kShutdownCommand, 0);
  return WaitWindowGone(windowClass, kNetworkToolTitle);
}
