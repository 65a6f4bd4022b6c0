#include "image.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "require.h"

extern "C" {
// libFuzzer's own entry points: the counters of the edges, and the pairs of address and flags that describe
// them.
void __sanitizer_cov_8bit_counters_init(uint8_t* begin, uint8_t* end);
void __sanitizer_cov_pcs_init(const uintptr_t* begin, const uintptr_t* end);
}

namespace {

// The image is always here, so that tools/fuzz/ can name the places in the reports.
constexpr uintptr_t kImageAddress = 0x480000000000;
constexpr size_t kPage = 4096;

struct Section {
  uint8_t* begin;
  size_t size;
  DWORD flags;
};

uint8_t* image;
std::map<std::string, Section> sections;
std::map<std::string, void*> exports;
std::vector<uint8_t> freshData;

std::map<std::string, void*>& AllAnswers() {
  static std::map<std::string, void*> answers;
  return answers;
}

template <typename Type>
Type* At(DWORD offset) {
  return reinterpret_cast<Type*>(image + offset);
}

const IMAGE_NT_HEADERS64& Headers() {
  return *At<IMAGE_NT_HEADERS64>(static_cast<DWORD>(At<IMAGE_DOS_HEADER>(0)->e_lfanew));
}

const IMAGE_DATA_DIRECTORY& Directory(int index) {
  return Headers().OptionalHeader.DataDirectory[index];
}

std::vector<uint8_t> ReadFileOf(const char* name) {
  std::ifstream file(name, std::ios::binary);
  std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  REQUIRE(!bytes.empty(), "cannot read the image %s", name);
  return bytes;
}

// Maps the headers and the sections of the file to the image's address.
void MapSections(const std::vector<uint8_t>& file) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(file.data());
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(file.data() + dos->e_lfanew);
  REQUIRE(headers->FileHeader.Machine == IMAGE_FILE_MACHINE_AMD64, "the image is not for x64");
  void* place = mmap(reinterpret_cast<void*>(kImageAddress), headers->OptionalHeader.SizeOfImage,
                     PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  REQUIRE(place == reinterpret_cast<void*>(kImageAddress), "the image's address is not free");
  image = static_cast<uint8_t*>(place);
  memcpy(image, file.data(), headers->OptionalHeader.SizeOfHeaders);
  const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
  for (int i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
    uint8_t* begin = image + section->VirtualAddress;
    DWORD count = std::min<DWORD>(section->SizeOfRawData, section->Misc.VirtualSize);
    memcpy(begin, file.data() + section->PointerToRawData, count);
    std::string name(reinterpret_cast<const char*>(section->Name), sizeof section->Name);
    sections[name.c_str()] = {begin, section->Misc.VirtualSize, section->Characteristics};
  }
}

void Relocate() {
  const uint64_t moved = kImageAddress - Headers().OptionalHeader.ImageBase;
  const IMAGE_DATA_DIRECTORY& directory = Directory(IMAGE_DIRECTORY_ENTRY_BASERELOC);
  for (DWORD at = 0; at < directory.Size;) {
    const auto* block = At<IMAGE_BASE_RELOCATION>(directory.VirtualAddress + at);
    const auto* entry = reinterpret_cast<const WORD*>(block + 1);
    const auto* end =
        reinterpret_cast<const WORD*>(reinterpret_cast<const uint8_t*>(block) + block->SizeOfBlock);
    for (; entry != end; ++entry) {
      constexpr int kOffsetBits = 12;
      int type = *entry >> kOffsetBits;
      if (type == IMAGE_REL_BASED_ABSOLUTE) continue;
      REQUIRE(type == IMAGE_REL_BASED_DIR64, "a relocation of type %d", type);
      *At<uint64_t>(block->VirtualAddress + (*entry & ((1 << kOffsetBits) - 1))) += moved;
    }
    at += block->SizeOfBlock;
  }
}

// The names of the imports without an answer; their places call ReportUnanswered with the index.
std::vector<std::string> unanswered;

IMAGE_ABI void ReportUnanswered(uint64_t index) {
  Fail("the library called %s, which has no answer", unanswered[index].c_str());
}

// Returns code that calls ReportUnanswered for `name`.
void* MakeUnanswered(const std::string& name) {
  constexpr size_t kCodeSize = 32;
  constexpr size_t kMost = 512;
  static uint8_t* const kCode = static_cast<uint8_t*>(mmap(
      nullptr, kCodeSize * kMost, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  REQUIRE(unanswered.size() < kMost, "too many imports without an answer");
  uint8_t* code = kCode + unanswered.size() * kCodeSize;
  const uint64_t index = unanswered.size();
  void* target = reinterpret_cast<void*>(&ReportUnanswered);
  uint8_t* at = code;
  *at++ = 0x48;  // mov rcx, index
  *at++ = 0xB9;
  memcpy(at, &index, sizeof index);
  at += sizeof index;
  *at++ = 0x48;  // mov rax, target
  *at++ = 0xB8;
  memcpy(at, &target, sizeof target);
  at += sizeof target;
  *at++ = 0xFF;  // jmp rax
  *at = 0xE0;
  unanswered.push_back(name);
  return code;
}

// The functions of msi.dll that are imported by ordinal.
constexpr struct {
  WORD ordinal;
  const char* name;
} kInstallerOrdinals[] = {
    {8, "MsiCloseHandle"},        {17, "MsiCreateRecord"},      {64, "MsiGetMode"},
    {73, "MsiGetPropertyA"},      {74, "MsiGetPropertyW"},      {103, "MsiProcessMessage"},
    {121, "MsiRecordSetInteger"}, {124, "MsiRecordSetStringA"}, {125, "MsiRecordSetStringW"},
    {141, "MsiSetInternalUI"},    {144, "MsiSetPropertyA"},     {145, "MsiSetPropertyW"},
};

std::string NameOfImport(const IMAGE_THUNK_DATA64& entry) {
  if (!IMAGE_SNAP_BY_ORDINAL64(entry.u1.Ordinal)) {
    return At<IMAGE_IMPORT_BY_NAME>(static_cast<DWORD>(entry.u1.AddressOfData))->Name;
  }
  for (const auto& known : kInstallerOrdinals) {
    if (known.ordinal == IMAGE_ORDINAL64(entry.u1.Ordinal)) return known.name;
  }
  return "an unknown ordinal";
}

void BindImports() {
  const auto* module = At<IMAGE_IMPORT_DESCRIPTOR>(Directory(IMAGE_DIRECTORY_ENTRY_IMPORT).VirtualAddress);
  for (; module->Name; ++module) {
    auto* slot = At<IMAGE_THUNK_DATA64>(module->FirstThunk);
    for (const auto* entry = At<IMAGE_THUNK_DATA64>(module->OriginalFirstThunk); entry->u1.AddressOfData;
         ++entry, ++slot) {
      std::string name = NameOfImport(*entry);
      void* answer = FindAnswer(name);
      slot->u1.Function = reinterpret_cast<uint64_t>(answer ? answer : MakeUnanswered(name));
    }
  }
}

void ReadExports() {
  const auto* table = At<IMAGE_EXPORT_DIRECTORY>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT).VirtualAddress);
  for (DWORD i = 0; i < table->NumberOfNames; ++i) {
    const char* name = At<char>(At<DWORD>(table->AddressOfNames)[i]);
    WORD index = At<WORD>(table->AddressOfNameOrdinals)[i];
    exports[name] = At<void>(At<DWORD>(table->AddressOfFunctions)[index]);
  }
}

void ProtectSections() {
  for (const auto& [name, section] : sections) {
    int protection = PROT_READ;
    if (section.flags & IMAGE_SCN_MEM_WRITE) protection |= PROT_WRITE;
    if (section.flags & IMAGE_SCN_MEM_EXECUTE) protection |= PROT_EXEC;
    // The fuzzer clears the counters itself.
    if (name == ".SCOV") protection |= PROT_WRITE;
    mprotect(section.begin, (section.size + kPage - 1) / kPage * kPage, protection);
  }
}

const Section& NeedSection(const char* name) {
  auto found = sections.find(name);
  REQUIRE(found != sections.end(), "the image has no section %s", name);
  return found->second;
}

void ReportCounters() {
  const Section& counters = NeedSection(".SCOV");
  const Section& places = NeedSection(".SCOVP");
  REQUIRE(places.size == counters.size * 2 * sizeof(uintptr_t),
          "the tables of the edges do not fit together");
  __sanitizer_cov_8bit_counters_init(counters.begin, counters.begin + counters.size);
  __sanitizer_cov_pcs_init(reinterpret_cast<const uintptr_t*>(places.begin),
                           reinterpret_cast<const uintptr_t*>(places.begin + places.size));
}

}  // namespace

Answers::Answers(std::initializer_list<Answer> answers) {
  for (const Answer& answer : answers) {
    REQUIRE(AllAnswers().emplace(answer.name, answer.function).second, "two answers for %s", answer.name);
  }
}

void* FindAnswer(const std::string& name) {
  auto found = AllAnswers().find(name);
  return found == AllAnswers().end() ? nullptr : found->second;
}

void LoadImage(const char* file) {
  MapSections(ReadFileOf(file));
  Relocate();
  BindImports();
  ReadExports();
  ProtectSections();
  ReportCounters();
  auto entry = reinterpret_cast<ImageFunction<BOOL(void*, DWORD, void*)>>(
      image + Headers().OptionalHeader.AddressOfEntryPoint);
  REQUIRE(entry(image, DLL_PROCESS_ATTACH, nullptr), "the library refuses to load");
  const Section& data = NeedSection(".data");
  freshData.assign(data.begin, data.begin + data.size);
}

void ResetImage() {
  memcpy(NeedSection(".data").begin, freshData.data(), freshData.size());
}

void* FindExport(const char* name) {
  auto found = exports.find(name);
  REQUIRE(found != exports.end(), "the library does not export %s", name);
  return found->second;
}
