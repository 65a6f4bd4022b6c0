// A library without anything in it: what loading any library costs, against which loading the real one is
// held.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) {
  return TRUE;
}
