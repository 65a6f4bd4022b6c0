#include "rig/world/profile.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "rig/function.h"

namespace rig {
namespace {

std::string Location(const std::string& file, const std::string& section, const std::string& key) {
  std::string location = file + "\n" + section + "\n" + key;
  std::transform(location.begin(), location.end(), location.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return location;
}

bool IsBlank(char letter) {
  return letter == ' ' || letter == '\t';
}

// Removes the blanks around the text after "=" and one pair of quotation marks.
std::string Trimmed(std::string value) {
  while (!value.empty() && IsBlank(value.front())) {
    value.erase(value.begin());
  }
  while (!value.empty() && IsBlank(value.back())) {
    value.pop_back();
  }
  bool quoted =
      value.size() >= 2 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
  return quoted ? value.substr(1, value.size() - 2) : value;
}

}  // namespace

void ProfileFiles::Set(const std::string& file, const std::string& section, const std::string& key,
                       const std::string& value) {
  values_[Location(file, section, key)] = Trimmed(value);
}

const std::string* ProfileFiles::Find(const char* file, const char* section, const char* key) const {
  if (file == nullptr || section == nullptr || key == nullptr) {
    Fail("a profile function is called without file, section or key; the world does not list them");
    return nullptr;
  }
  auto found = values_.find(Location(file, section, key));
  return found == values_.end() ? nullptr : &found->second;
}

UINT ProfileFiles::ReadNumber(const char* file, const char* section, const char* key, INT missing) const {
  const std::string* text = Find(file, section, key);
  if (text == nullptr) {
    return static_cast<UINT>(missing);
  }
  size_t at = 0;
  bool negative = !text->empty() && (*text)[0] == '-';
  at = !text->empty() && ((*text)[0] == '-' || (*text)[0] == '+') ? 1 : 0;
  UINT number = 0;
  for (; at < text->size() && std::isdigit(static_cast<unsigned char>((*text)[at])) != 0; ++at) {
    number = number * 10 + static_cast<UINT>((*text)[at] - '0');
  }
  return negative ? 0U - number : number;
}

// Cuts text that does not fit to size - 1 bytes; returns the length without the terminator.
DWORD ProfileFiles::ReadText(const char* file, const char* section, const char* key, const char* missing,
                             char* buffer, DWORD size) const {
  const std::string* found = Find(file, section, key);
  std::string text = found != nullptr ? *found : missing == nullptr ? "" : missing;
  if (buffer == nullptr || size == 0) {
    return 0;
  }
  size_t length = std::min<size_t>(text.size(), size - 1);
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return static_cast<DWORD>(length);
}

void ProfileFiles::Install() {
  rig_.On<::GetPrivateProfileIntA>(
      [this](const char* section, const char* key, INT missing, const char* file) {
        return ReadNumber(file, section, key, missing);
      });
  rig_.On<::GetPrivateProfileStringA>(
      [this](const char* section, const char* key, const char* missing, char* buffer, DWORD size,
             const char* file) { return ReadText(file, section, key, missing, buffer, size); });
}

}  // namespace rig
