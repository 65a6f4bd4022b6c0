// CustomAction2: for packages whose dialogs must not reappear, sets the installer's internal user interface
// to the basic level (progress and errors only). Reads nothing, logs nothing, returns 0.

#include "frame/session.h"

extern "C" UINT WINAPI CustomAction2(MSIHANDLE) {
  MsiSetInternalUI(INSTALLUILEVEL_BASIC, nullptr);
  return ERROR_SUCCESS;
}
