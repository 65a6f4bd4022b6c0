// The Windows that one run sees: what the answers share. Used by the answers and the targets.
#pragma once

#include "data.h"

/// The kinds of things that the library must give back.
enum class Kind {
  kBlock,         ///< a block of the process heap
  kLocalBlock,    ///< a block that LocalFree frees
  kTaskBlock,     ///< a block that CoTaskMemFree frees
  kSearch,        ///< a search for files
  kHandle,        ///< an open file, a token or a process
  kKey,           ///< a registry key
  kRecord,        ///< a record of the installer
  kService,       ///< the service manager or a service
  kModule,        ///< a loaded module
  kBuffer,        ///< a buffer of the network functions
  kSessionBlock,  ///< a block that WTSFreeMemory frees
  kString,        ///< a system string
  kReference,     ///< a reference to an object
  kPolicy,        ///< the policy that has the rights of accounts
  kBinding,       ///< a connection to the directory
  kNames,         ///< a list of names that the directory makes
};

/// Everything that lasts for one run.
struct World {
  /// The choices of the answers.
  Data data{nullptr, 0};
  /// The number of the call that fails, counted from 1 over all calls that can fail; 0 for none.
  uint32_t failing = 0;
  /// If true, all calls after it fail, too.
  bool failsOn = false;
  /// The calls so far.
  uint32_t calls = 0;
  /// The last error.
  DWORD error = 0;
  /// The error mode of the process, and the one with which the run began.
  UINT mode = SEM_NOGPFAULTERRORBOX, modeBefore = mode;
  /// The local time, and system time; the answers of the clock.
  SYSTEMTIME local{}, system{};
  /// The zone; `zoneResult` is the answer of GetTimeZoneInformation.
  TIME_ZONE_INFORMATION zone{};
  DWORD zoneResult = TIME_ZONE_ID_UNKNOWN;  ///< see `zone`
  DWORD ticks = 0;                          ///< milliseconds since the start of the system
  /// The answers of GetLocaleInfoW by type; a type without one has no answer.
  std::map<DWORD, std::u16string> locale;
  /// The answers of GetDateFormatW and GetTimeFormatW.
  std::u16string date, time;
};

/// The world of the current run.
extern World world;

/// Calls `reset` at the beginning of each run. For the files of answers that have a state of their own.
struct AtBegin {
  /// Registers `reset` before main.
  explicit AtBegin(void (*reset)());
};

/// Begins a run: an empty world.
void BeginWorld();

/// Ends a run: fails if something was not given back or if the error mode is not restored.
void EndWorld();

/// Takes from `data` which call fails, in half of the runs none, and the error mode with which the run
/// begins.
void TakeFailure(Data* data);

/// Counts a call that can fail, and returns true if it has to fail.
bool MustFail();

/// True if a call of this run has failed on purpose.
bool HasFailed();

/// Notes that the library took `thing`. Returns it.
void* Took(Kind kind, void* thing);
/// Notes that the library gave back `thing`; fails if it does not have it.
void GaveBack(Kind kind, const void* thing);
/// Fails if the library does not have `thing`.
void NeedHeld(Kind kind, const void* thing);
/// Returns a new value for a handle of `kind`, and notes that the library took it.
void* NewHandle(Kind kind);

/// Sets the last error and returns `result`.
template <typename Result>
Result WithError(DWORD error, Result result) {
  world.error = error;
  return result;
}

/// Returns `size` bytes that are not zero, as a block that `kind` frees.
void* NewBlock(Kind kind, size_t size);
/// Frees a block of `kind`.
void FreeBlock(Kind kind, void* block);

/// Converts well-formed or damaged UTF-8 as Windows does: a byte that is not part of a character becomes
/// U+FFFD.
std::u16string WideOf(std::string_view text);
/// Converts UTF-16 as Windows does: half a pair becomes U+FFFD.
std::string NarrowOf(std::u16string_view text);
/// Returns `unit` as this Windows folds it to ignore case.
char16_t FoldedUnit(char16_t unit);
/// True if two names are the same to this Windows, which ignores case.
bool IsSameName(std::u16string_view a, std::u16string_view b);
/// Stores `text` by the rules of the functions that return a folder, for a buffer of `capacity` units.
/// Returns the length without the terminator, or, if the buffer is too small, the size that is needed with
/// it.
DWORD DeliverPath(const std::u16string& text, DWORD capacity, LPWSTR buffer);
/// Returns the units of a terminated text.
std::u16string_view ViewOf(const wchar_t* text);
