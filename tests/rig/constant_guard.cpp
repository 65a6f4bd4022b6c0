#include "rig/constant_guard.h"

#include <cstdint>
#include <cstring>

namespace rig {
namespace {

constexpr size_t kGuardPage = 4096;
// Fills a guard page; the same as MARK in tools/images/guarded_constants.py.
constexpr char kMark[] = "hxguard";

// The section of the constants.
struct Constants {
  unsigned char* begin = nullptr;
  unsigned char* end = nullptr;
};

Constants ConstantsOf(HMODULE library) {
  auto* base = reinterpret_cast<unsigned char*>(library);
  auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
  for (WORD index = 0; index < headers->FileHeader.NumberOfSections; ++index, ++section) {
    if (std::memcmp(section->Name, ".rdata", sizeof ".rdata") == 0) {
      return {base + section->VirtualAddress, base + section->VirtualAddress + section->Misc.VirtualSize};
    }
  }
  return {};
}

bool IsMarked(const unsigned char* page) {
  return std::memcmp(page, kMark, sizeof kMark) == 0 &&
         std::memcmp(page, page + sizeof kMark, kGuardPage - sizeof kMark) == 0;
}

}  // namespace

size_t GuardConstants(HMODULE library) {
  const Constants constants = ConstantsOf(library);
  size_t count = 0;
  for (unsigned char* page = constants.begin; page + kGuardPage <= constants.end; page += kGuardPage) {
    DWORD before = 0;
    if (IsMarked(page) && VirtualProtect(page, kGuardPage, PAGE_NOACCESS, &before)) ++count;
  }
  return count;
}

ptrdiff_t PastConstant(HMODULE library, const void* address) {
  const Constants constants = ConstantsOf(library);
  auto* byte = static_cast<const unsigned char*>(address);
  MEMORY_BASIC_INFORMATION memory = {};
  if (byte < constants.begin || byte >= constants.end || VirtualQuery(byte, &memory, sizeof memory) == 0 ||
      memory.Protect != PAGE_NOACCESS) {
    return -1;
  }
  return static_cast<ptrdiff_t>(reinterpret_cast<uintptr_t>(byte) % kGuardPage);
}

}  // namespace rig
