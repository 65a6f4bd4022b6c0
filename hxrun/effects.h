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

#include "rig/declaration.h"

namespace hxrun {

/// Whether a function can change the machine.
enum class Effect : uint8_t {
  kKeeps,    ///< It changes nothing outside this process.
  kChanges,  ///< It can change the machine.
};

/// What handles and objects stand for: the full path of a key or a file, the name of a service, a window, a
/// process. Filled by the watcher as the library opens them.
using Names = std::map<std::pair<char, uint64_t>, std::string>;

/// One call of the library, for the functions of a row.
struct Call {
  const uint64_t* words;  ///< the arguments' bits
  const Names& names;     ///< what handles stand for

  /// Argument `index` as a wide text, in UTF-8; empty for null.
  std::string Wide(int index) const;
  /// Argument `index` as an 8-bit text, in UTF-8; empty for null.
  std::string Narrow(int index) const;
  /// An 8-bit text in UTF-8; empty for null.
  static std::string Text(const char* text);
  /// What the handle in argument `index` stands for; `kind` is the letter in Names.
  std::string Name(char kind, int index) const;
};

/// What a call touches. Each is a text that begins with its kind, such as "file:c:\temp\a" or
/// "service:ostrel"; it is in small letters. What follows a backslash lies inside.
using Subjects = std::vector<std::string>;

/// The row of one function or method.
struct Row {
  /// The exported name, or INTERFACE.METHOD.
  const char* name;
  /// Whether it can change the machine.
  Effect effect;
  /// What its answer depends on; null for nothing that an action can change.
  Subjects (*needs)(const Call& call) = nullptr;
  /// What a change touches; null for nothing that is read later.
  Subjects (*touches)(const Call& call) = nullptr;
  /// The change, after "would": "move C:\A to C:\B".
  std::string (*describe)(const Call& call) = nullptr;
  /// False for a call that changes nothing; null if every call changes something.
  bool (*isChange)(const Call& call) = nullptr;
  /// The bits of the result if the machine as it is makes the call fail; sets the last error. Null if that is
  /// not looked at.
  std::optional<uint64_t> (*refusal)(const Call& call) = nullptr;
  /// Fills what a success stores through the arguments; null for nothing.
  void (*fill)(const Call& call) = nullptr;
};

/// Returns the row of a function or method, or null.
const Row* FindRow(const std::string& name);

/// Returns what is wrong with the table: a function of the rig's tables without a row, a change without a
/// description. Empty if nothing is.
std::string CheckEffects();

/// Returns the full path of a file, without a backslash at its end, as a subject of files.
std::string FileSubject(const std::wstring& path);

/// Returns the text in small letters.
std::string Lower(const std::string& text);

/// The kinds of handles in Names.
inline constexpr char kKeyName = 'k', kFileName = 'f', kServiceName = 's', kWindowName = 'w',
                      kProcessName = 'p';

}  // namespace hxrun
