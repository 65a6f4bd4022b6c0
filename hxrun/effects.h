// The table of effects: for each function and method that the library can call, whether it can change the
// machine, what it touches, and how a dry run describes it. Used by the watcher of a run.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "hxrun/changes.h"
#include "rig/declaration.h"

namespace hxrun {

/// Whether a function can change the machine.
enum class Effect : uint8_t {
  kKeeps,    ///< It changes nothing outside this process.
  kChanges,  ///< It can change the machine.
};

/// What handles and objects stand for: the full path of a key or a file, the name of a service, a window, a
/// process, the subject of the folder that is searched. Filled by the watcher as the library opens them.
using Names = std::map<std::pair<char, uint64_t>, std::string>;

/// One call of the library, for the functions of a row.
struct Call {
  const uint64_t* words;   ///< the arguments' bits
  const Names& names;      ///< what handles stand for
  const Changes& changes;  ///< the changes that a dry run has recorded

  /// Argument `index` as a wide text, in UTF-8; empty for null.
  std::string Wide(int index) const;
  /// Argument `index` as an 8-bit text, in UTF-8; empty for null.
  std::string Narrow(int index) const;
  /// An 8-bit text in UTF-8; empty for null.
  static std::string Text(const char* text);
  /// What the handle in argument `index` stands for; `kind` is the letter in Names.
  std::string Name(char kind, int index) const;
};

/// What a look at the machine says of a change before it is made.
struct Outlook {
  /// The outcomes.
  enum class Kind : uint8_t {
    kBegins,   ///< The call could begin.
    kFails,    ///< The call would fail.
    kUnknown,  ///< No look can know.
  };
  Kind kind = Kind::kBegins;       ///< the outcome
  uint64_t result = 0;             ///< the bits of the failing result
  uint32_t error = 0;              ///< the error of the failure: a code of Windows, an HRESULT or an NTSTATUS
  bool setsLastError = false;      ///< the failure leaves its error as the last error
  size_t change = Changes::kNone;  ///< for kUnknown: the recorded change on which the answer depends, if any
};

/// The row of one function or method.
struct Row {
  /// The exported name, or INTERFACE.METHOD.
  const char* name;
  /// Whether it can change the machine.
  Effect effect;
  /// What its answer depends on; null for nothing that an action can change.
  Subjects (*needs)(const Call& call) = nullptr;
  /// What a change touches, and how; null for nothing that is read later.
  std::vector<Touch> (*touches)(const Call& call) = nullptr;
  /// The change, after "would": "move C:\A to C:\B".
  std::string (*describe)(const Call& call) = nullptr;
  /// The read-only look that says whether the change could begin. Every change has one.
  Outlook (*look)(const Call& call) = nullptr;
  /// False for a call that changes nothing; null if every call changes something.
  bool (*isChange)(const Call& call) = nullptr;
  /// Fills what a success stores through the arguments; null for nothing.
  void (*fill)(const Call& call) = nullptr;
};

/// Returns the row of a function or method, or null.
const Row* FindRow(const std::string& name);

/// Returns what is wrong with the table: a function of the rig's tables without a row, a change without a
/// description or a look. Empty if nothing is.
std::string CheckEffects();

/// Returns a file as a subject of files: by its full path without a backslash at its end, in which links to
/// the folder above it are followed and short names are made long. A link itself is not followed.
std::string FileSubject(const std::wstring& path);

/// Does so without following a link and without long names.
std::string WrittenSubject(const std::wstring& path);

/// Returns a task as a subject, by its path or its name.
std::string TaskSubject(const std::string& path);

/// Returns the subject of the folder that a search with this path lists; empty if it looks up one name.
std::string SearchedFolder(const std::wstring& path);

/// Returns the text in small letters.
std::string Lower(const std::string& text);

/// The kinds of handles in Names.
inline constexpr char kKeyName = 'k', kFileName = 'f', kServiceName = 's', kWindowName = 'w',
                      kProcessName = 'p', kSearchName = 'd';

}  // namespace hxrun
