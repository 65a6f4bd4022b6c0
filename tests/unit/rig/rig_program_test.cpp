// What the test programs need of Windows, so that the rig can replace the functions that the library calls.
#include "unit/rig/rig_subject.h"

namespace rig_test {

bool AsksForChecks(const wchar_t* module) {
  auto* base = reinterpret_cast<const unsigned char*>(GetModuleHandleW(module));
  auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  return headers->OptionalHeader.DllCharacteristics & IMAGE_DLLCHARACTERISTICS_GUARD_CF;
}

// Windows checks the indirect calls of a process only if its program asks for it. The library asks; the
// functions of the rig, which it calls instead of the real ones, are in no table of targets.
TEST_F(RigTest, WindowsDoesNotCheckTheCallsOfATestProgram) {
  EXPECT_FALSE(AsksForChecks(nullptr));
  EXPECT_TRUE(AsksForChecks(L"rigsubject.dll"));
}

}  // namespace rig_test
