// CustomAction36: runs a section of a setup information (INF) file. CustomActionData is the command line for
// the setup library: the section, the restart mode and the file's path, separated by spaces. Logs the command
// line. Always returns 0; whether the section succeeded is not known.

#include "base/heap.h"
#include "base/late_binding.h"
#include "frame/session.h"

namespace {

using InstallHinfSection = void CALLBACK(HWND window, HINSTANCE instance, const char* commandLine, int show);

}  // namespace

extern "C" UINT WINAPI CustomAction36(MSIHANDLE session) {
  Module setupLibrary(LoadLate("SETUPAPI"));
  auto* installSection = FindFunction<InstallHinfSection>(setupLibrary.get(), "InstallHinfSectionA");
  if (!installSection) return ERROR_SUCCESS;
  HeapStringA commandLine(ReadPropertyA(session, "CustomActionData"));
  LogSetupMessage(session, "InstallHinfSection(%s)", commandLine.get());
  if (commandLine) installSection(nullptr, nullptr, commandLine.get(), 0);
  return ERROR_SUCCESS;
}
