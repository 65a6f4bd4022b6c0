// Is in the library's place in a package: runs each action in the library Z:\run\library\hxsetup.dll, and
// counts the calls of Windows that it makes, those of methods too. Appends two lines to Z:\run\calls.txt for
// each run of an action: "CustomAction7 begins", before anything else, and "CustomAction7 12", its calls. So
// an action that crashes leaves the first line alone. What goes wrong is a line that begins with "fault: ".
#include <windows.h>

#include <msi.h>

#include <fstream>

#include "hxrun/com_objects.h"
#include "hxrun/modules.h"
#include "hxrun/run.h"
#include "rig/failures.h"
#include "rig/library.h"

namespace {

void Write(const std::string& line) {
  std::ofstream("Z:\\run\\calls.txt", std::ios::app) << line << "\n";
}

// Counts the calls. Changes are made.
class Counter : public hxrun::RunWatcher {
 public:
  Counter()
      : RunWatcher(
            hxrun::ChangeRule::kAllow, nullptr, [](const std::string&) { return true; },
            [](hxrun::ExitStatus, const std::string& text) { rig::Fail(text); }) {}

  void Before(const rig::Declaration& declaration, const uint64_t* words) override {
    ++count;
    RunWatcher::Before(declaration, words);
  }

  unsigned count = 0;
};

UINT Run(int number, MSIHANDLE session) {
  const std::string name = "CustomAction" + std::to_string(number);
  Write(name + " begins");
  // The installer unloads this library, but the rig has hooked what lives longer.
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                     reinterpret_cast<const wchar_t*>(&Run), &self);
  try {
    Counter counter;
    rig::Rig rig(rig::Policy::kReal);
    rig.spoils = false;
    rig.session = session;
    hxrun::NameModules(rig);
    hxrun::PassObjects(rig, counter);
    rig::Library library("hxsetup.dll", L"Z:\\run\\library");
    rig.watcher = &counter;
    rig.Attach(library);
    const UINT result = library.CustomAction(number, session);
    rig.watcher = nullptr;
    Write(name + " " + std::to_string(counter.count));
    return result;
  } catch (const std::exception& failure) {
    Write("fault: " + std::string(failure.what()));
    return ERROR_INSTALL_FAILURE;
  }
}

}  // namespace

void rig::OnFault(const std::string& text) {
  Write("fault: " + text);
}

// The entry points of the library.
#define HX_ENTRY_POINT(number)                                                           \
  extern "C" __declspec(dllexport) UINT WINAPI CustomAction##number(MSIHANDLE session) { \
    return Run(number, session);                                                         \
  }
#include "measured/entry_points.inc"
