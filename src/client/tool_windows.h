// Closes the windows of the product's desktop tools. Used by the action that releases the client files.
//
// A window is found by its class and its title. A wait polls twice a second and ends after five seconds of
// the system's tick count.
//
// On purpose: tick counts are compared directly. If the count wraps around during a wait, the wait can end at
// its first poll, or last until the window is closed.
#pragma once

#include <windows.h>

/// The longest wait for a window to close or for the service to stop, in milliseconds of the tick count.
constexpr DWORD kLongestWait = 5000;
/// The time between two polls, in milliseconds.
constexpr DWORD kPollInterval = 500;

extern "C" {

/// Waits until the window is closed. Returns 1 if it is, or never existed; 0 if it is still open after the
/// longest wait.
int WaitWindowGone(const char* windowClass, const char* title);

/// Asks the window to close, and waits. Returns 1 if there is no such window or it closed, 0 if it is still
/// open.
int CloseToolWindow(const char* windowClass, const char* title);

/// Shuts down a network tool, whose window title is "Ostrel". Sends the tools' own message, then
/// WM_ENDSESSION, then the command of their menu, and waits after each. Returns 1 if there is no such window
/// or it closed, 0 if it is still open.
int CloseNetworkTool(const char* windowClass);

}  // extern "C"
