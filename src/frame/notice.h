// Notices: messages to the user from the package's Error table. Used by the actions that must inform the user
// outside the log.
#pragma once

#include <windows.h>
// These need windows.h first.
#include <msi.h>
#include <msiquery.h>

/// How the title of the fallback message box is read from "ProductName".
enum class NoticeTitle {
  kWholeBuffer,  ///< with the full size of the buffer
  /// On purpose: with the length of "PROP_SILENCE", 2, as the buffer's size. A name longer than one character
  /// does not fit, and the fixed title is used.
  kReusedCount,
};

/// One notice. Its text is in the package's Error table, under `number`. `boxText` is shown if no installer
/// record can be created.
struct Notice {
  int number;           ///< the row of the Error table
  INSTALLMESSAGE type;  ///< the message type, with buttons and icon
  const char* boxText;  ///< the text of the fallback message box
  UINT boxIcon;         ///< the icon of the fallback message box (MB_ICON...)
  NoticeTitle title;    ///< how the title of the fallback message box is read
};

extern "C" {

/// Shows the notice if the property PROP_SILENCE can be read and is exactly "-1"; otherwise does nothing.
/// Sends a record to the installer. If none can be created, shows a message box instead, titled with
/// "ProductName", or with the platform's name if that property is empty or cannot be read.
void SendNotice(MSIHANDLE session, const Notice* notice);

}  // extern "C"
