// The sums of the counters of libraries that count what runs, and their raw profile.

#include "rig/coverage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "rig/library.h"

namespace rig_coverage_test {

// A library with two functions, three counters and five bytes of bits, as it lies in memory.
struct Image {
  char records[128];
  uint64_t counters[3];
  char bitmap[5];
  char names[4];

  rig::CounterSections Sections() const {
    return {{records, sizeof records},
            {names, sizeof names},
            {reinterpret_cast<const char*>(counters), sizeof counters},
            {bitmap, sizeof bitmap}};
  }
};

Image MakeImage(uint64_t first, char bits) {
  Image image = {};
  for (size_t i = 0; i < sizeof image.records; ++i) image.records[i] = static_cast<char>(i);
  for (uint64_t& counter : image.counters) counter = first++;
  for (char& byte : image.bitmap) byte = bits;
  std::memcpy(image.names, "\0abc", sizeof image.names);
  return image;
}

std::string Numbers(const std::vector<uint64_t>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(uint64_t)};
}

TEST(RigCoverageTest, CountersAreAddedAndBitsAreJoined) {
  const Image first = MakeImage(1, 0x05);
  const Image second = MakeImage(100, 0x30);
  rig::CounterSums sums;
  sums.Add(first.Sections());
  sums.Add(second.Sections());
  const std::string head = Numbers({0xFF6C70726F667281, 10, 0, 2, 0, 3, 0, 5, 3, 3, 128, 152, 0, 0, 0, 2});
  EXPECT_EQ(sums.Profile(), head + std::string(first.records, sizeof first.records) +
                                Numbers({101, 103, 105}) + std::string(5, 0x35) + std::string(3, '\0') +
                                "abc" + std::string(5, '\0'));
}

// A record has a distance in 32 bits, so a section that lies before the records is far after them.
TEST(RigCoverageTest, DistancesHaveTheirLower32Bits) {
  struct {
    uint64_t counters[16];
    char records[64];
  } image = {};
  const rig::CounterSections sections = {{image.records, sizeof image.records},
                                         {"\0abc", 4},
                                         {reinterpret_cast<const char*>(image.counters), 8},
                                         {}};
  rig::CounterSums sums;
  sums.Add(sections);
  EXPECT_EQ(sums.Profile().substr(0, 128),
            Numbers({0xFF6C70726F667281, 10, 0, 1, 0, 1, 0, 0, 0, 3, 0xFFFFFF80, 0, 0, 0, 0, 2}));
}

TEST(RigCoverageTest, ALibraryWithoutCountersHasNoProfile) {
  const Image image = MakeImage(1, 1);
  for (rig::CounterSection rig::CounterSections::* missing :
       {&rig::CounterSections::records, &rig::CounterSections::names, &rig::CounterSections::counters}) {
    rig::CounterSections sections = image.Sections();
    sections.*missing = {};
    rig::CounterSums sums;
    sums.Add(sections);
    EXPECT_EQ(sums.Profile(), "");
  }
}

TEST(RigCoverageTest, SectionsAreFoundByTheirNames) {
  const rig::CounterSections sections = rig::CounterSections::Of(GetModuleHandleW(nullptr));
  EXPECT_EQ(sections.records.begin, nullptr);
  EXPECT_EQ(sections.names.begin, nullptr);
  EXPECT_EQ(sections.counters.begin, nullptr);
  EXPECT_EQ(sections.bitmap.begin, nullptr);

  // A made-up image: only its heads are read.
  struct {
    IMAGE_DOS_HEADER dos;
    IMAGE_NT_HEADERS64 headers;
    IMAGE_SECTION_HEADER sections[5];
  } image = {};
  image.dos.e_lfanew = offsetof(decltype(image), headers);
  image.headers.FileHeader.NumberOfSections = 5;
  image.headers.FileHeader.SizeOfOptionalHeader = sizeof image.headers.OptionalHeader;
  const char* names[] = {".lprfb", ".lprfc", ".lprfcx", ".lprfd", ".lprfn"};
  for (DWORD i = 0; i < 5; ++i) {
    std::memcpy(image.sections[i].Name, names[i], std::strlen(names[i]));
    image.sections[i].VirtualAddress = 0x1000 * (i + 1);
    image.sections[i].Misc.VirtualSize = i + 1;
  }
  const auto found = rig::CounterSections::Of(reinterpret_cast<HMODULE>(&image));
  const auto* base = reinterpret_cast<const char*>(&image);
  EXPECT_EQ(found.bitmap.begin, base + 0x1000);
  EXPECT_EQ(found.bitmap.size, 1u);
  EXPECT_EQ(found.counters.begin, base + 0x2000);
  EXPECT_EQ(found.counters.size, 2u);
  EXPECT_EQ(found.records.begin, base + 0x4000);
  EXPECT_EQ(found.records.size, 4u);
  EXPECT_EQ(found.names.begin, base + 0x5000);
  EXPECT_EQ(found.names.size, 5u);
}

// A name that is too long for a file must not end as a run that counts nothing.
TEST(RigCoverageTest, TheNameOfTheFolderCanHaveAnyLength) {
  const std::wstring before = rig::CoverageFolder();
  for (const size_t length : {1, MAX_PATH - 1, MAX_PATH, 4000}) {
    const std::wstring path(length, L'x');
    SetEnvironmentVariableW(L"HX_COVERAGE", path.c_str());
    EXPECT_EQ(rig::CoverageFolder(), path);
  }
  SetEnvironmentVariableW(L"HX_COVERAGE", nullptr);
  EXPECT_EQ(rig::CoverageFolder(), L"");
  if (!before.empty()) SetEnvironmentVariableW(L"HX_COVERAGE", before.c_str());
}

}  // namespace rig_coverage_test
