#include "rig/world/setup_library.h"

#include <windows.h>

// Must come after windows.h.
#include <setupapi.h>

#include "rig/function.h"

namespace rig {

void SetupLibrary::Install() {
  rig_.On<::InstallHinfSectionA>(
      [this](HWND, HINSTANCE, const char* commandLine, INT) { sections.emplace_back(commandLine); });
}

}  // namespace rig
