// Closing the windows of the product's desktop tools. Used by the action that makes way for new files.
//
// A window is found by its class and its title. Waits poll twice a second and end after five seconds by the
// system's tick count, which is compared as it stands, on purpose: where the count wraps around meanwhile, a
// wait can end at its first poll, or last until the window is gone.
#pragma once

#include <windows.h>

/// How long a window, or the service, is given to go: milliseconds of the system's tick count.
constexpr DWORD kLongestWait = 5000;
/// How long is slept between two looks, in milliseconds.
constexpr DWORD kPollInterval = 500;

extern "C" {

/// Waits until there is no such window. 1 when there is none, 0 when it stayed.
int WaitWindowGone(const char* windowClass, const char* title);

/// Asks the window to close, and waits. 1 when there is no such window or it went away, 0 when it stayed.
int CloseToolWindow(const char* windowClass, const char* title);

/// Shuts down one of the network tools, whose title is "Ostrel": by their own message, then as at the end of
/// the session, then by their menu, each with a wait. 1 when there is no such window or it went away, 0 when
/// it stayed.
int CloseNetworkTool(const char* windowClass);

}  // extern "C"
