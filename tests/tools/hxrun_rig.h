// Runs hxrun.exe as a user does, in a folder of its own with the library under test. Used by tests/tools/.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace hxrun_test {

/// What one run of hxrun printed, and its exit status.
struct HxRun {
  DWORD status = 0;
  std::string output;  ///< the standard output, without carriage returns
  std::string errors;  ///< the error output, without carriage returns

  /// Returns the lines of the output that begin with `head`, without it.
  std::vector<std::string> Lines(const std::string& head) const;
  /// Returns the changes that a dry run lists, each after "would".
  std::vector<std::string> Changes() const { return Lines("  would "); }
  /// Returns the lines of the installer's log.
  std::vector<std::string> Log() const { return Lines("log: "); }
  /// Returns the output after the first two lines, which name the user, the action and the version.
  std::string Story() const;
};

/// The folder with hxrun.exe and hxsetup.dll, without a backslash at its end.
extern const wchar_t kRunFolder[];

/// Makes kRunFolder, with fresh copies of both files.
void LayDownHxRun();

/// Runs hxrun with these arguments, exactly as they are on a command line. Its input is no console.
HxRun RunHxRun(const std::wstring& arguments);

/// Reads and writes the bytes of a file. WriteBytes creates the folders that are missing.
std::string ReadBytes(const std::wstring& path);
void WriteBytes(const std::wstring& path, const std::string& bytes);

/// Deletes a folder with everything in it; a missing folder is fine.
void DeleteFolder(const std::wstring& folder);

/// Returns text as the bytes of a UTF-16 file with a byte order mark.
std::string AsUtf16(const std::string& text);

}  // namespace hxrun_test
