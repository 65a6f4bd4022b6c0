#include "rig/coverage.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "rig/library.h"

namespace rig {
namespace {

// The head of a raw profile. The order is that of LLVM's form 10.
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

constexpr size_t kRecordSize = 64;

std::wstring folder;

// The sums by the library's file name without its extension.
std::map<std::string, CounterSums>& AllSums() {
  static std::map<std::string, CounterSums> sums;
  return sums;
}

// The distance of two sections as the records have it: its lower 32 bits.
uint32_t Distance(const CounterSection& to, const CounterSection& from) {
  return static_cast<uint32_t>(to.begin - from.begin);
}

size_t PaddingTo8(size_t size) {
  return (8 - size % 8) % 8;
}

void AddCounters(const Library& library) {
  AllSums()[library.File().substr(0, library.File().rfind('.'))].Add(CounterSections::Of(library.Handle()));
}

bool WriteFile(const std::wstring& path, const std::string& bytes) {
  std::FILE* file = _wfopen(path.c_str(), L"wb");
  if (file == nullptr) return false;
  bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && isWritten;
}

}  // namespace

CounterSections CounterSections::Of(HMODULE module) {
  CounterSections found;
  const struct {
    const char* name;
    CounterSection* section;
  } wanted[] = {{".lprfd", &found.records},
                {".lprfn", &found.names},
                {".lprfc", &found.counters},
                {".lprfb", &found.bitmap}};
  auto* base = reinterpret_cast<const char*>(module);
  auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
  for (WORD index = 0; index < headers->FileHeader.NumberOfSections; ++index, ++section) {
    const auto* name = reinterpret_cast<const char*>(section->Name);
    for (const auto& one : wanted) {
      if (std::strncmp(name, one.name, IMAGE_SIZEOF_SHORT_NAME) == 0) {
        *one.section = {base + section->VirtualAddress, section->Misc.VirtualSize};
      }
    }
  }
  return found;
}

void CounterSums::Add(const CounterSections& sections) {
  const auto& [records, names, counters, bitmap] = sections;
  if (records.begin == nullptr || names.begin == nullptr || counters.begin == nullptr) return;
  if (records_.empty()) {
    records_.assign(records.begin, records.size / kRecordSize * kRecordSize);
    names_.assign(names.begin + 1, names.size - 1);
    counters_.resize(counters.size / sizeof(uint64_t));
    bitmap_.resize(bitmap.size);
    countersDelta_ = Distance(counters, records);
    if (bitmap.begin != nullptr) bitmapDelta_ = Distance(bitmap, records);
  }
  for (size_t index = 0; index < counters_.size(); ++index) {
    uint64_t count;
    std::memcpy(&count, counters.begin + index * sizeof count, sizeof count);
    counters_[index] += count;
  }
  for (size_t index = 0; index < bitmap_.size(); ++index) {
    bitmap_[index] = static_cast<char>(bitmap_[index] | bitmap.begin[index]);
  }
}

std::string CounterSums::Profile() const {
  if (records_.empty()) return {};
  ProfileHead head;
  head.functions = records_.size() / kRecordSize;
  head.counters = counters_.size();
  head.bitmapBytes = bitmap_.size();
  head.paddingAfterBitmap = PaddingTo8(bitmap_.size());
  head.namesSize = names_.size();
  head.countersDelta = countersDelta_;
  head.bitmapDelta = bitmapDelta_;
  std::string profile(reinterpret_cast<const char*>(&head), sizeof head);
  profile += records_;
  profile.append(reinterpret_cast<const char*>(counters_.data()), counters_.size() * sizeof(uint64_t));
  profile += bitmap_;
  profile.append(head.paddingAfterBitmap, '\0');
  profile += names_;
  profile.append(PaddingTo8(names_.size()), '\0');
  return profile;
}

std::wstring CoverageFolder() {
  std::wstring path(GetEnvironmentVariableW(L"HX_COVERAGE", nullptr, 0), L'\0');
  path.resize(GetEnvironmentVariableW(L"HX_COVERAGE", path.data(), static_cast<DWORD>(path.size())));
  return path;
}

void BeginCoverage() {
  folder = CoverageFolder();
  if (!folder.empty()) Library::BeforeUnloading(AddCounters);
}

bool WriteCoverage(const std::string& suite) {
  std::wstring prefix(suite.begin(), suite.end());
  std::replace(prefix.begin(), prefix.end(), L'/', L'+');
  bool isWritten = true;
  for (const auto& [name, sums] : AllSums()) {
    const std::string profile = sums.Profile();
    const std::wstring path =
        folder + L"\\" + prefix + L"." + std::wstring(name.begin(), name.end()) + L".profraw";
    isWritten = (profile.empty() || WriteFile(path, profile)) && isWritten;
  }
  AllSums().clear();
  return isWritten;
}

}  // namespace rig
