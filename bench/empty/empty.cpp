// An empty library: the cost of loading it is compared with that of loading the real one.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD, void*) {
  return TRUE;
}
