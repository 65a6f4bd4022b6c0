#include "rig/coverage.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "rig/library.h"

namespace rig {
namespace {

// The head of a raw profile. The names and the order are those of LLVM's form 10.
struct ProfileHead {
  uint64_t magic = 0xFF'6C'70'72'6F'66'72'81;  // "\xFFlprofr\x81"
  uint64_t version = 10;
  uint64_t binaryIdsSize = 0;
  uint64_t functions = 0;
  uint64_t paddingBeforeCounters = 0;
  uint64_t counters = 0;
  uint64_t paddingAfterCounters = 0;
  uint64_t bitmapBytes = 0;
  uint64_t paddingAfterBitmap = 0;
  uint64_t namesSize = 0;
  uint64_t countersDelta = 0;
  uint64_t bitmapDelta = 0;
  uint64_t namesDelta = 0;
  uint64_t virtualTables = 0;
  uint64_t virtualTableNamesSize = 0;
  uint64_t lastValueKind = 2;
};

// The size of one function's record in the section of the records.
constexpr size_t kRecordSize = 64;

// One section of a loaded library; null if the library does not have it.
struct Section {
  const char* begin = nullptr;
  size_t size = 0;
};

// The sums of all copies of one library.
struct Sums {
  std::vector<char> records;
  std::vector<char> names;
  std::vector<uint64_t> counters;
  std::vector<char> bitmap;
  uint32_t countersDelta = 0;
  uint32_t bitmapDelta = 0;
};

std::wstring folder;

// The sums by the library's file name without its extension.
std::map<std::string, Sums>& AllSums() {
  static std::map<std::string, Sums> sums;
  return sums;
}

Section FindSection(HMODULE module, const char* name) {
  auto* base = reinterpret_cast<const char*>(module);
  auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
  for (WORD index = 0; index < headers->FileHeader.NumberOfSections; ++index, ++section) {
    if (std::strncmp(reinterpret_cast<const char*>(section->Name), name, IMAGE_SIZEOF_SHORT_NAME) == 0) {
      return {base + section->VirtualAddress, section->Misc.VirtualSize};
    }
  }
  return {};
}

// The distance of two sections as the records hold it: its lower 32 bits.
uint32_t Distance(const Section& to, const Section& from) {
  return static_cast<uint32_t>(to.begin - from.begin);
}

void AddCounters(const Library& library) {
  const Section records = FindSection(library.Handle(), ".lprfd");
  const Section names = FindSection(library.Handle(), ".lprfn");
  const Section counters = FindSection(library.Handle(), ".lprfc");
  const Section bitmap = FindSection(library.Handle(), ".lprfb");
  if (records.begin == nullptr || names.begin == nullptr || counters.begin == nullptr) return;
  Sums& sums = AllSums()[library.File().substr(0, library.File().rfind('.'))];
  if (sums.records.empty()) {
    sums.records.assign(records.begin, records.begin + records.size);
    // The first byte of the section belongs to no name.
    sums.names.assign(names.begin + 1, names.begin + names.size);
    sums.counters.resize(counters.size / sizeof(uint64_t));
    sums.bitmap.resize(bitmap.size);
    sums.countersDelta = Distance(counters, records);
    if (bitmap.begin != nullptr) sums.bitmapDelta = Distance(bitmap, records);
  }
  auto* counter = reinterpret_cast<const uint64_t*>(counters.begin);
  for (uint64_t& sum : sums.counters) sum += *counter++;
  const char* byte = bitmap.begin;
  for (char& sum : sums.bitmap) sum = static_cast<char>(sum | *byte++);
}

size_t PaddingTo8(size_t size) {
  return (8 - size % 8) % 8;
}

bool WriteProfile(const std::string& name, const Sums& sums) {
  ProfileHead head;
  head.functions = sums.records.size() / kRecordSize;
  head.counters = sums.counters.size();
  head.bitmapBytes = sums.bitmap.size();
  head.paddingAfterBitmap = PaddingTo8(sums.bitmap.size());
  head.namesSize = sums.names.size();
  head.countersDelta = sums.countersDelta;
  head.bitmapDelta = sums.bitmapDelta;
  const char zeros[8] = {};
  const std::wstring path = folder + L"\\" + std::wstring(name.begin(), name.end()) + L".profraw";
  std::FILE* file = _wfopen(path.c_str(), L"wb");
  if (file == nullptr) return false;
  auto write = [file](const void* bytes, size_t size) {
    return size == 0 || std::fwrite(bytes, 1, size, file) == size;
  };
  bool isWritten = write(&head, sizeof head) && write(sums.records.data(), head.functions * kRecordSize) &&
                   write(sums.counters.data(), sums.counters.size() * sizeof(uint64_t)) &&
                   write(sums.bitmap.data(), sums.bitmap.size()) && write(zeros, head.paddingAfterBitmap) &&
                   write(sums.names.data(), sums.names.size()) && write(zeros, PaddingTo8(sums.names.size()));
  return std::fclose(file) == 0 && isWritten;
}

}  // namespace

void BeginCoverage() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetEnvironmentVariableW(L"HX_COVERAGE", path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return;
  folder = path;
  Library::BeforeUnloading(AddCounters);
}

bool WriteCoverage(const std::string& suite) {
  std::string prefix = suite;
  std::replace(prefix.begin(), prefix.end(), '/', '+');
  bool isWritten = true;
  for (const auto& [name, sums] : AllSums()) isWritten = WriteProfile(prefix + "." + name, sums) && isWritten;
  AllSums().clear();
  return isWritten;
}

}  // namespace rig
