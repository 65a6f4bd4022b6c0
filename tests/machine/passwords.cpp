#include "machine/passwords.h"

#include <windows.h>

namespace machine {

namespace {

// True if a password begins at `start`; a character of `text` has `width` bytes.
bool IsPassword(const std::string& text, size_t start, size_t width) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVabcdefghijklmnopqrstuv0123456789!=$-+.,~^_";
  constexpr size_t kLength = 20, kGroup = 4;
  if (start + kLength * width > text.size()) return false;
  for (size_t i = 0; i < kLength; ++i) {
    const char c = text[start + i * width];
    if (width > 1 && text[start + i * width + 1] != 0) return false;
    bool fits = c == 'A';
    if (i % kGroup == 0) fits = alphabet.find(c) != std::string::npos;
    if (i % kGroup == 1) fits = c >= 'A' && c <= 'D';
    if (!fits) return false;
  }
  return true;
}

// Reads a file that other programs may have open. Returns false if not all of it can be read.
bool Read(const std::wstring& path, std::string& bytes) {
  HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  char block[16384];
  DWORD count = 0;
  bool isRead = true;
  while ((isRead = ReadFile(file, block, sizeof block, &count, nullptr)) && count) bytes.append(block, count);
  CloseHandle(file);
  return isRead;
}

bool Overwrite(const std::wstring& path, const std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  const bool isWritten = WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                         written == bytes.size();
  CloseHandle(file);
  return isWritten;
}

}  // namespace

const char kHiddenPassword[] = "********************";

bool HidePasswords(std::string& text) {
  bool isHidden = false;
  for (size_t width : {1, 2}) {
    for (size_t start = 0; start < text.size(); ++start) {
      if (!IsPassword(text, start, width)) continue;
      for (size_t i = 0; i + 1 < sizeof kHiddenPassword; ++i) text[start + i * width] = kHiddenPassword[i];
      isHidden = true;
    }
  }
  return isHidden;
}

bool HidePasswordsInFile(const std::wstring& path) {
  std::string bytes;
  return Read(path, bytes) && (!HidePasswords(bytes) || Overwrite(path, bytes));
}

}  // namespace machine
