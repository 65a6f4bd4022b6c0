#include "tools/own_import.h"

namespace hxrun_test {

void** OwnImportSlot(const std::string& name) {
  auto* base = reinterpret_cast<unsigned char*>(GetModuleHandleW(nullptr));
  auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  auto* module = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports);
  for (; module->Name != 0; ++module) {
    auto* lookup = reinterpret_cast<const ULONGLONG*>(base + module->OriginalFirstThunk);
    auto* slot = reinterpret_cast<void**>(base + module->FirstThunk);
    for (; *lookup != 0; ++lookup, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL64(*lookup)) continue;
      auto* imported = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + *lookup);
      if (name == reinterpret_cast<const char*>(imported->Name)) return slot;
    }
  }
  throw std::runtime_error("this program does not import " + name);
}

}  // namespace hxrun_test
