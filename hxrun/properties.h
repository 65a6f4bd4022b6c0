// The properties of a session from files: lists of NAME=VALUE, and verbose logs of the installer. Used by the
// main function.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace hxrun {

/// The lines of a text file as UTF-8, without line ends. The file is UTF-16 with a byte order mark, UTF-8, or
/// in the system's 8-bit code page. Throws UsageError if it cannot be read.
std::vector<std::string> ReadLines(const std::string& path);

/// Does the same for the bytes of a file.
std::vector<std::string> LinesOf(const std::string& bytes);

/// Names and values.
using Properties = std::map<std::string, std::string>;

/// Reads lines NAME=VALUE; empty lines and lines that begin with "#" or ";" do not count. Throws UsageError,
/// which names the line; `file` is the file's name.
Properties ReadProperties(const std::vector<std::string>& lines, const std::string& file);

/// What a log says of an action.
struct LoggedAction {
  Properties values;                ///< the properties where the action began
  std::vector<std::string> hidden;  ///< the properties whose values the log does not show
  std::optional<std::string> data;  ///< CustomActionData, for a deferred action
  std::vector<std::string> notes;   ///< what the user must know about the values
};

/// Reads a verbose log. `action` is the name of the action in the package, or the name of its entry point.
/// `isDeferred` asks for the data, too. If the log has runs of the action for several products, the one with
/// the ProductCode `product` is taken, or the last one if no run is of `product`; a note says so. Throws
/// UsageError if the log has no run of the action, hides its data, or does not say to which product the run
/// belongs; `file` is the file's name.
LoggedAction ReadLog(const std::vector<std::string>& lines, const std::string& action, bool isDeferred,
                     const std::string& file, const std::string& product = {});

}  // namespace hxrun
