// Notices: what an action tells the user through the package's Error table. Used by the actions that must be
// heard outside the log.
#pragma once

#include <windows.h>
// After windows.h, on which they build.
#include <msi.h>
#include <msiquery.h>

/// How the title of a fall-back box is read.
enum class NoticeTitle {
  kWholeBuffer,  ///< "ProductName" is read with the whole buffer as its room
  /// "ProductName" is read with the room that the length of "PROP_SILENCE" left in the count: a name longer
  /// than one character does not fit, and the fixed title stands.
  kReusedCount,
};

/// One notice. A package's Error table holds its text under `number`; `boxText` stands in where no record can
/// be made.
struct Notice {
  int number;           ///< the row of the Error table
  INSTALLMESSAGE type;  ///< message type with buttons and icon
  const char* boxText;  ///< the text of the fall-back box
  UINT boxIcon;         ///< the icon of the fall-back box (MB_ICON...)
  NoticeTitle title;    ///< how the box's title is read
};

extern "C" {

/// Tells the user, when the property PROP_SILENCE reads without error and is exactly "-1"; in every other
/// case does nothing. The notice is a record for the installer or, where none can be made, a message box
/// titled with "ProductName" or, failing that, the platform's name.
void SendNotice(MSIHANDLE session, const Notice* notice);

}  // extern "C"
