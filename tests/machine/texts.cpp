#include "machine/texts.h"

namespace machine {

std::wstring ToWide(const std::string& text, UINT codePage) {
  int size = static_cast<int>(text.size());
  std::wstring wide(MultiByteToWideChar(codePage, 0, text.data(), size, nullptr, 0), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), size, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string FromWide(const std::wstring& text, UINT codePage) {
  int size = static_cast<int>(text.size());
  std::string bytes(WideCharToMultiByte(codePage, 0, text.data(), size, nullptr, 0, nullptr, nullptr), '\0');
  WideCharToMultiByte(codePage, 0, text.data(), size, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                      nullptr);
  return bytes;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

}  // namespace machine
