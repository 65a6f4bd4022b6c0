// The stand-in for the tracking library "OSTRACK.DLL", which Windows loads into every process with windows if
// it is in "AppInit_DLLs". It only records which program has loaded it.
#include "record.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  char path[MAX_PATH];
  DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  const char* name = path + length;
  while (name > path && name[-1] != '\\') --name;
  Record(Line() << "OSTRACK.DLL: in " << name);
  return TRUE;
}
