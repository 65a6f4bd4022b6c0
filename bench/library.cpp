// Measures the library as a file: its size, its imports, and the cost of loading and unloading it in relation
// to an empty library.
//
//   ready   the libraries that it imports are already loaded, as in the installer's process
//   alone   none is loaded: loading the library loads the system's libraries too
#include <map>

#include "bench.h"

namespace {

// Returns the bytes of a file; none if it cannot be opened.
std::vector<char> ReadWhole(const std::string& path) {
  std::vector<char> bytes;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return bytes;
  char block[65536];
  while (const size_t count = std::fread(block, 1, sizeof block, file)) {
    bytes.insert(bytes.end(), block, block + count);
  }
  std::fclose(file);
  return bytes;
}

// An image for any processor, laid out in memory as on disk.
class Image {
 public:
  explicit Image(std::vector<char> bytes) : bytes_(std::move(bytes)) {
    const auto* dos = At<IMAGE_DOS_HEADER>(0);
    headers_ = At<IMAGE_NT_HEADERS64>(static_cast<size_t>(dos->e_lfanew));
  }

  size_t Size() const { return bytes_.size(); }

  // Returns the number of functions imported from each library.
  std::map<std::string, unsigned> Imports() const {
    std::map<std::string, unsigned> imports;
    const DWORD table = headers_->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    if (table == 0) return imports;
    const auto* descriptor = AtAddress<IMAGE_IMPORT_DESCRIPTOR>(table);
    for (; descriptor->Name != 0; ++descriptor) {
      unsigned count = 0;
      for (const auto* entry = AtAddress<ULONGLONG>(descriptor->OriginalFirstThunk); *entry != 0; ++entry)
        ++count;
      imports[AtAddress<char>(descriptor->Name)] += count;
    }
    return imports;
  }

  // Returns the sections with their sizes in the file in bytes, in one line.
  std::string Sections() const {
    std::string text;
    for (WORD i = 0; i < headers_->FileHeader.NumberOfSections; ++i) {
      const IMAGE_SECTION_HEADER& section = IMAGE_FIRST_SECTION(headers_)[i];
      const std::string name(reinterpret_cast<const char*>(section.Name),
                             strnlen(reinterpret_cast<const char*>(section.Name), sizeof section.Name));
      text += (text.empty() ? "" : ", ") + name + " " + std::to_string(section.SizeOfRawData);
    }
    return text;
  }

 private:
  template <class Type>
  const Type* At(size_t offset) const {
    if (offset + sizeof(Type) > bytes_.size()) bench::Die("an image is cut short");
    return reinterpret_cast<const Type*>(bytes_.data() + offset);
  }

  template <class Type>
  const Type* AtAddress(DWORD address) const {
    for (WORD i = 0; i < headers_->FileHeader.NumberOfSections; ++i) {
      const IMAGE_SECTION_HEADER& section = IMAGE_FIRST_SECTION(headers_)[i];
      if (address - section.VirtualAddress < section.SizeOfRawData) {
        return At<Type>(address - section.VirtualAddress + section.PointerToRawData);
      }
    }
    bench::Die("an image has no section at %lx", address);
  }

  std::vector<char> bytes_;
  const IMAGE_NT_HEADERS64* headers_;
};

void PrintImage(const std::string& file) {
  std::vector<char> bytes = ReadWhole(bench::LibraryFolder() + file);
  if (bytes.empty()) return;
  const Image image(std::move(bytes));
  std::printf("\n%s\n  %.1f KiB in the file: %s\n", file.c_str(), static_cast<double>(image.Size()) / 1024,
              image.Sections().c_str());
  unsigned all = 0;
  std::string each;
  for (const auto& [library, count] : image.Imports()) {
    all += count;
    each += (each.empty() ? "" : ", ") + std::to_string(count) + " of " + library;
  }
  std::printf("  %u imported functions%s%s\n", all, all ? ": " : "", each.c_str());
}

bench::Batch Loading(const std::string& file) {
  const std::string path = bench::LibraryFolder() + file;
  return [path](unsigned count) {
    while (count--) {
      const HMODULE module = LoadLibraryA(path.c_str());
      if (!module) bench::Die("cannot load %s: error %lu", path.c_str(), GetLastError());
      FreeLibrary(module);
    }
  };
}

double LoadingRatio() {
  return bench::Ratios({Loading("empty.dll"), Loading("hxsetup.dll")}, {31, 3000})[0];
}

}  // namespace

int main() {
  std::printf("The library as a file\n");
  PrintImage("hxsetup.dll");
  PrintImage("hxsetup-arm64.dll");
  PrintImage("empty.dll");

  std::printf("\nLoading and unloading hxsetup.dll, in times of an empty library (1: no difference)\n");
  const double alone = LoadingRatio();
  const Image image(ReadWhole(bench::LibraryFolder() + "hxsetup.dll"));
  for (const auto& [library, count] : image.Imports()) {
    if (!LoadLibraryA(library.c_str())) bench::Die("cannot load %s", library.c_str());
  }
  std::printf("  ready  %.2f\n  alone  %.2f\n", LoadingRatio(), alone);
}
