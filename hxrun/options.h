// The command line of hxrun. Used by its main function and by its tests.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hxrun {

/// A mistake of the user; the text says what to do.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the user asks for. All texts are UTF-8.
struct Options {
  std::string action;      ///< the action as given: "CustomAction15" or "CustomAction15.Server"
  std::string entryPoint;  ///< the entry point: "CustomAction15"
  std::vector<std::pair<std::string, std::string>> properties;  ///< each NAME=VALUE, in order
  std::string data;                                             ///< the text after --data
  std::string propertiesFile;  ///< the file after --properties; empty if not given
  std::string logFile;         ///< the file after --from-log; empty if not given
  bool hasData = false;        ///< --data was given
  bool rollback = false;       ///< --rollback was given
  bool trace = false;          ///< --trace was given
  bool dryRun = false;         ///< --dry-run was given
  bool yes = false;            ///< --yes was given
  bool list = false;           ///< --list was given
  bool help = false;           ///< --help was given

  /// True if the action sees only what a deferred action sees.
  bool IsDeferred() const;
};

/// The properties whose values are passwords, which are never shown.
inline constexpr const char* kSecretProperties[] = {"PROP_TASKPASS", "PROP_ACCOUNTPASS"};

/// True if the property's value is a password: it is one of kSecretProperties, or its name looks like a
/// misspelt one.
bool IsSecretProperty(const std::string& name);

/// The text that --help prints.
extern const char kHelp[];

/// Splits a command line into words, without the program's name. A word NAME="VALUE" is read as the installer
/// reads it: a backslash is a backslash, and two quotation marks are one. All other words are read as Windows
/// programs read them, but a word "NAME=VALUE" ends at a backslash and a quotation mark before a blank, which
/// some shells write for a value that ends with a backslash.
std::vector<std::wstring> SplitCommandLine(std::wstring_view line);

/// Reads the words. Throws UsageError.
Options ReadOptions(const std::vector<std::wstring>& words);

/// Returns " Did you mean X?" for the candidate that is most like the word; empty if none is like it.
std::string NearestHint(const std::string& word, const std::vector<std::string>& candidates);

}  // namespace hxrun
