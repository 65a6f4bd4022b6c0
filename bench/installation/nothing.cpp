// Stands in the library's place in a package: its entry points do nothing. What such a package takes longer
// than one without the actions is the engine's own work for them.
#include <windows.h>

#include <msi.h>

#define HX_ENTRY_POINT(number)                                                   \
  extern "C" __declspec(dllexport) UINT WINAPI CustomAction##number(MSIHANDLE) { \
    return ERROR_SUCCESS;                                                        \
  }
#include "measured/entry_points.inc"
