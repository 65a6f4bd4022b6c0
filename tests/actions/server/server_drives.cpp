#include "actions/server/server_drives.h"

#include <algorithm>
#include <cstdio>

#include "rig/function.h"
#include "rig/print.h"

namespace server_test {
namespace {

constexpr wchar_t kCurrent[] = L"S:\\Current";

bool BeginsWithDrive(const std::wstring& path) {
  return path.size() >= 2 && path[1] == L':';
}

// Returns true if a name may be a short one; its letters are counted in UTF-16 units.
bool MayBeShort(const std::string& name) {
  std::wstring wide = rig::ToWide(name);
  size_t dot = std::min(wide.find(L'.'), wide.size());
  return !wide.empty() && wide.size() <= 12 && dot < 9 && wide.size() - dot < 5 &&
         wide.find_first_of(L" +,;=[]") >= dot;
}

}  // namespace

std::string Quoted(const std::string& path) {
  return rig::Quote(std::string_view(path));
}

Drives::Drives() {
  wchar_t temporary[MAX_PATH];
  GetTempPathW(MAX_PATH, temporary);
  base_ = temporary + (L"hx drives " + std::to_wstring(GetCurrentProcessId()));
  Clear();
}

Drives::~Drives() {
  std::error_code ignored;
  std::filesystem::remove_all(base_, ignored);
}

void Drives::Clear() {
  for (const wchar_t* drive : {L"S", L"D"}) {
    std::filesystem::remove_all(base_ / drive);
    std::filesystem::create_directories(base_ / drive);
  }
}

std::wstring Drives::RealName(const wchar_t* path) const {
  std::wstring name(path);
  if (name.empty()) {
    return {};
  }
  if (!BeginsWithDrive(name)) {
    name = name[0] == L'\\' ? L"S:" + name : std::wstring(kCurrent) + L"\\" + name;
  }
  wchar_t drive = static_cast<wchar_t>(name[0] & ~0x20);
  if (drive != L'S' && drive != L'D') {
    return {};
  }
  return (base_ / std::wstring(1, drive)).wstring() + name.substr(2);
}

std::filesystem::path Drives::RealPath(const std::string& path) const {
  return RealName(rig::ToWide(path).c_str());
}

void Drives::Answer(rig::World& world) {
  // Calls the real function of the same name on the real path.
  auto real = [this](auto function, const wchar_t* path, auto failing, auto... rest) {
    std::wstring name = RealName(path);
    if (name.empty()) {
      SetLastError(ERROR_PATH_NOT_FOUND);
      return failing;
    }
    return function(name.c_str(), rest...);
  };
  world.On<::FindFirstFileW>([=, this](const wchar_t* path, WIN32_FIND_DATAW* found) {
    auto shortened = shortened_.find(path);
    if (shortened != shortened_.end()) {
      path = shortened->second.c_str();
    }
    HANDLE search = real(rig::Function<&::FindFirstFileW>::Real(), path, INVALID_HANDLE_VALUE, found);
    // What a failing search leaves is not defined. Here it looks like a folder, so that a test notices its
    // use.
    if (search == INVALID_HANDLE_VALUE) found->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    return search;
  });
  world.On<::GetFileAttributesW>([=](const wchar_t* path) {
    return real(rig::Function<&::GetFileAttributesW>::Real(), path, INVALID_FILE_ATTRIBUTES);
  });
  world.On<::CreateFileW>([=](const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                              DWORD how, DWORD flags, HANDLE model) {
    return real(rig::Function<&::CreateFileW>::Real(), path, INVALID_HANDLE_VALUE, access, share, security,
                how, flags, model);
  });
  world.On<::CreateDirectoryW>([=](const wchar_t* path, SECURITY_ATTRIBUTES* security) {
    return real(rig::Function<&::CreateDirectoryW>::Real(), path, FALSE, security);
  });
  world.On<::RemoveDirectoryW>(
      [=](const wchar_t* path) { return real(rig::Function<&::RemoveDirectoryW>::Real(), path, FALSE); });
  world.On<::DeleteFileW>(
      [=](const wchar_t* path) { return real(rig::Function<&::DeleteFileW>::Real(), path, FALSE); });
  // With two paths, a drive that does not exist becomes a name that nothing has.
  world.On<::MoveFileW>([=, this](const wchar_t* from, const wchar_t* to) {
    return real(rig::Function<&::MoveFileW>::Real(), from, FALSE, RealName(to).c_str());
  });
  world.On<::MoveFileExW>([=, this](const wchar_t* from, const wchar_t* to, DWORD flags) {
    return real(rig::Function<&::MoveFileExW>::Real(), from, FALSE, RealName(to).c_str(), flags);
  });
  world.On<::CopyFileW>([=, this](const wchar_t* from, const wchar_t* to, BOOL keepsExisting) {
    return real(rig::Function<&::CopyFileW>::Real(), from, FALSE, RealName(to).c_str(), keepsExisting);
  });
  world.On<::GetFullPathNameW>([](const wchar_t* path, DWORD room, wchar_t* buffer, wchar_t** leaf) {
    std::wstring name(path);
    if (!BeginsWithDrive(name)) {
      name = name.substr(0, 2) == L"\\\\" ? name
             : name.substr(0, 1) == L"\\" ? L"S:" + name
                                          : std::wstring(kCurrent) + L"\\" + name;
    }
    return rig::Function<&::GetFullPathNameW>::Real()(name.c_str(), room, buffer, leaf);
  });
}

void Drives::Folder(const std::string& path) {
  std::filesystem::create_directories(RealPath(path));
}

void Drives::File(const std::string& path, const std::string& contents) {
  std::filesystem::path real = RealPath(path);
  std::filesystem::create_directories(real.parent_path());
  HANDLE file =
      CreateFileW(real.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE) << path << ": " << GetLastError();
  DWORD written = 0;
  EXPECT_TRUE(WriteFile(file, contents.data(), static_cast<DWORD>(contents.size()), &written, nullptr));
  CloseHandle(file);
}

void Drives::Remove(const std::string& path) {
  EXPECT_NE(std::filesystem::remove_all(RealPath(path)), 0u) << path;
}

void Drives::Shorten(const std::string& path, const std::string& name) {
  shortened_[rig::ToWide(path)] = rig::ToWide(path.substr(0, path.rfind('\\') + 1) + name);
}

bool Drives::HasFile(const std::string& path) const {
  return std::filesystem::is_regular_file(RealPath(path));
}

bool Drives::HasFolder(const std::string& path) const {
  return std::filesystem::is_directory(RealPath(path));
}

std::vector<std::string> Drives::List(const std::string& path) const {
  std::filesystem::path folder = RealPath(path);
  std::vector<std::string> lines;
  if (!std::filesystem::is_directory(folder)) {
    return lines;
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::wstring real = entry.path().wstring().substr(folder.wstring().size());
    std::string name = rig::ToUtf8(std::wstring_view(real).substr(real.find_first_not_of(L"\\/")));
    std::replace(name.begin(), name.end(), '/', '\\');
    if (entry.is_directory()) {
      lines.push_back(name + "\\");
      continue;
    }
    std::string contents(static_cast<size_t>(entry.file_size()), '\0');
    HANDLE file =
        CreateFileW(entry.path().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file, contents.data(), static_cast<DWORD>(contents.size()), &read, nullptr));
    CloseHandle(file);
    lines.push_back(name + " = " + contents);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

Calls& Calls::Add(const std::string& line) {
  lines.push_back(line);
  return *this;
}

Calls& Calls::Add(const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return *this;
}

Calls& Calls::Read(const std::string& name, const std::string& result) {
  return Add("MsiGetPropertyW(session, \"" + name + "\", *, *) = " + result);
}

Calls& Calls::ReadA(const std::string& name, const std::string& result) {
  return Add("MsiGetPropertyA(session, \"" + name + "\", *, *) = " + result);
}

Calls& Calls::Set(const std::string& name, const std::string& value, const std::string& result) {
  return Add("MsiSetPropertyW(session, \"" + name + "\", " + Quoted(value) + ") = " + result);
}

Calls& Calls::Search(const std::string& call) {
  return Add(call + " = search#" + std::to_string(++searches_));
}

Calls& Calls::NextEntry(int search, const std::string& result) {
  return Add("FindNextFileW(search#" + std::to_string(search == 0 ? searches_ : search) + ", *) = " + result);
}

Calls& Calls::CloseSearch(int search) {
  return Add("FindClose(search#" + std::to_string(search == 0 ? searches_ : search) + ") = 1");
}

Calls& Calls::LookUp(const std::string& path) {
  std::string call = "FindFirstFileW(" + Quoted(path) + ", *)";
  // A name that ends with a backslash finds nothing, not even a folder.
  return path.back() != '\\' && disk_.Has(path) ? Search(call).CloseSearch()
                                                : Add(call + " = INVALID_HANDLE_VALUE");
}

Calls& Calls::Spell(const std::string& path) {
  Add("SetErrorMode(0x8001) = 16384");
  // The first name is the drive.
  for (size_t start = path.find('\\') + 1; start <= path.size();) {
    size_t end = std::min(path.find('\\', start), path.size());
    std::string name = path.substr(start, end - start);
    if (!name.empty() && name != ".." && (end == path.size() || MayBeShort(name))) {
      LookUp(path.substr(0, end));
    }
    start = end + 1;
  }
  return Add("SetErrorMode(0x4000) = 32769");
}

Calls& Calls::ReadPath(const std::string& name, const std::string& path) {
  Read(name);
  return path.empty() ? *this : Spell(path);
}

Calls& Calls::Join(const std::string& path) {
  if (!MayBeShort(path.substr(path.rfind('\\') + 1))) {
    return *this;
  }
  return Add("SetErrorMode(0x8001) = 16384").LookUp(path).Add("SetErrorMode(0x4000) = 32769");
}

Calls& Calls::Attributes(const std::string& path) {
  return Add("GetFileAttributesW(" + Quoted(path) + ") = " +
             (disk_.HasFolder(path) ? "16"
              : disk_.HasFile(path) ? "32"
                                    : "0xffffffff"));
}

Calls& Calls::OpenSettings(const std::string& result) {
  keys_ += result == "0";
  return Add(
      R"(RegOpenKeyExA(HKEY_LOCAL_MACHINE, "System\\CurrentControlSet\\Services\\Vantor\\Settings", 0, 0x1, *) = )" +
      result);
}

Calls& Calls::QueryData(const std::string& result) {
  return Add("RegQueryValueExA(key#" + std::to_string(keys_) + ", \"vtdf\", null, null, *, *) = " + result);
}

Calls& Calls::CloseSettings() {
  return Add("RegCloseKey(key#" + std::to_string(keys_) + ") = 0");
}

Calls& Calls::TestFile(const std::string& path) {
  std::string call = "CreateFileW(" + Quoted(path) + ", 0x0, 3, null, 3, 0x80, null) = ";
  // A folder is not opened like a file.
  if (!disk_.HasFile(path)) {
    return Add(call + "INVALID_HANDLE_VALUE");
  }
  std::string handle = "handle#" + std::to_string(++handles_);
  return Add(call + handle).Add("CloseHandle(" + handle + ") = 1").LookUp(path);
}

Calls& Calls::Notify(int number) {
  return ReadA("PROP_SILENCE")
      .Add("MsiCreateRecord(2) = record#1")
      .Add("MsiRecordSetInteger(record#1, 1, " + std::to_string(number) + ") = 0")
      .Add("MsiProcessMessage(session, 0x3000040, record#1) = 1")
      .Add("MsiCloseHandle(record#1) = 0");
}

void ServerTest::TearDown() {
  if (!isHeard_) {
    EXPECT_TRUE(Installer().Messages().empty());
    EXPECT_TRUE(TheWorld().desktop.boxes.empty());
  }
  rig::ActionTest::TearDown();
}

void ExpectNoOtherFolder(const rig::SweepRun& run, const std::vector<std::string>& plain) {
  if (run.name != "HeapAlloc" && run.name != "HeapReAlloc") return;
  for (const std::string& line : run.scene.world.installer.Published()) {
    EXPECT_NE(std::find(plain.begin(), plain.end(), line), plain.end()) << run.call << " published " << line;
  }
}

}  // namespace server_test
