// The record of what happens to the stand-ins for the programs of client and server: the file "Ostrel
// record.txt" in the folder that all users share, one line for each event. Used by agent.cpp and
// tracking.cpp.
#pragma once

#include <windows.h>

/// A line of the record, or another text built from parts: 8-bit, zero-terminated, cut off after kSize - 1
/// bytes.
struct Line {
  static constexpr size_t kSize = 512;
  char text[kSize] = {};
  size_t length = 0;

  Line& operator<<(const char* part) {
    while (*part && length + 1 < kSize) text[length++] = *part++;
    text[length] = 0;
    return *this;
  }
  Line& operator<<(DWORD number) {
    char digits[11];
    char* digit = digits + sizeof digits - 1;
    *digit = 0;
    do {
      *--digit = static_cast<char>('0' + number % 10);
    } while (number /= 10);
    return *this << digit;
  }
};

/// Appends a line to the record. Failures are ignored: the line is lost.
inline void Record(const Line& event) {
  Line path;
  path.length = GetEnvironmentVariableA("ProgramData", path.text, MAX_PATH);
  path << "\\Ostrel record.txt";
  // Several programs write at the same time: only appended lines stay whole.
  HANDLE file =
      CreateFileA(path.text, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return;
  Line line = event;
  line << "\r\n";
  DWORD written;
  WriteFile(file, line.text, static_cast<DWORD>(line.length), &written, nullptr);
  CloseHandle(file);
}
