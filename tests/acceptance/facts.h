// What the acceptance run must know of a machine before it begins, and why it refuses one. Used by
// accept.exe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace acceptance {

/// What was found on a machine.
struct Facts {
  std::string native;             ///< the processor of the machine: "x64", "arm64" or another name
  unsigned major = 0, build = 0;  ///< the version of Windows
  std::string edition;            ///< ProductName and display version, as the registry has them
  std::string engine;             ///< "Microsoft's" or "Wine's", with Wine's version
  bool isElevated = false;
  uint64_t freeBytes = 0;                  ///< on the drive of Windows
  unsigned codePage = 0;                   ///< the system's 8-bit code page
  std::string locale, zone, memory, time;  ///< the user's locale, the time zone, the memory, the time in UTC
  bool hasShortNames = true;               ///< the temporary folder's drive gives short (8.3) names
  std::string windowsDrive;                ///< the drive of Windows, as "C:"
  size_t folderLength = 0;                 ///< the characters of the archive's path
  size_t reportLength = 0;                 ///< those of the report's path; 0 if no folder was named for it
  bool fitsCodePage = true;          ///< both paths have only characters of the system's 8-bit code page
  bool isOnNetwork = false;          ///< one of the two is on another computer
  bool isInOneDrive = false;         ///< one of the two is in a folder that OneDrive copies to the network
  std::string userLanguage;          ///< of the user's interface, as "en-US"
  std::string systemLanguage;        ///< of the interface with which Windows was installed
  bool isLocalUser = true;           ///< the user's account is one of this computer
  std::vector<std::string> damaged;  ///< the files of the archive that are missing or changed
  std::vector<std::string> inUse;    ///< what the tests would change or delete and is there already
};

/// The disk space that the tests need, in bytes.
constexpr uint64_t kNeededBytes = uint64_t{2} << 30;
/// The first build of Windows 10 with all that the tests need; also that of Windows Server 2016.
constexpr unsigned kFirstBuild = 14393;
/// The longest path of the archive, and of the report; the names of the logs are appended to it.
constexpr size_t kLongestFolder = 100, kLongestReport = 110;

/// Collects the facts of this machine. `folder` is the archive's folder, `report` the folder that was named
/// for the report, empty for none; without a backslash at the end.
Facts Gather(const std::wstring& folder, const std::wstring& report = L"");

/// Returns true if all characters of a path are in the 8-bit code page `codePage`, so that the programs that
/// use 8-bit functions find it.
bool FitsCodePage(const std::wstring& path, unsigned codePage);

/// Returns true if `path` is the folder `folder`, or in it. The case of letters does not count.
bool IsIn(const std::wstring& path, const std::wstring& folder);

/// Returns true if a language, as "en-US", is English.
bool IsEnglish(const std::string& language);

/// Returns what keeps an archive for `processor` ("x64" or "arm64") from running, each with what to do; empty
/// if nothing does. `goesOn` accepts a machine in use; `installs` is false if no install tests are run: only
/// they need the language and the user.
std::vector<std::string> Refusals(const Facts& facts, const std::string& processor, bool goesOn,
                                  bool installs);

/// Returns what the person should know and does not stop the run, such as an emulated processor.
std::vector<std::string> Remarks(const Facts& facts, const std::string& processor);

/// Returns the facts as lines for the report.
std::vector<std::string> Lines(const Facts& facts);

/// Returns the files of the list `files.txt` in `folder` that are missing or whose hash is another one; and
/// the list itself if it cannot be read. Each line of the list is a SHA-256 hash in lower case, two blanks,
/// and a path with "\".
std::vector<std::string> Damaged(const std::wstring& folder);

}  // namespace acceptance
