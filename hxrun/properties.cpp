#include "hxrun/properties.h"

#include <windows.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "hxrun/options.h"
#include "rig/print.h"

namespace hxrun {
namespace {

constexpr char kHiddenValue[] = "**********";

std::wstring Decoded(std::string_view bytes, UINT codePage, DWORD flags) {
  const int size = static_cast<int>(bytes.size());
  std::wstring text(bytes.size(), L'\0');
  const int length =
      size == 0 ? 0 : MultiByteToWideChar(codePage, flags, bytes.data(), size, text.data(), size);
  text.resize(static_cast<size_t>(length));
  return text;
}

std::wstring DecodedText(std::string_view bytes) {
  if (bytes.substr(0, 2) == "\xFF\xFE") {
    std::wstring text((bytes.size() - 2) / sizeof(wchar_t), L'\0');
    std::copy_n(bytes.data() + 2, text.size() * sizeof(wchar_t), reinterpret_cast<char*>(text.data()));
    return text;
  }
  if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  std::wstring text = Decoded(bytes, CP_UTF8, MB_ERR_INVALID_CHARS);
  return text.empty() ? Decoded(bytes, CP_ACP, 0) : text;
}

bool StartsWith(std::string_view text, std::string_view head) {
  return text.substr(0, head.size()) == head;
}

bool EndsWith(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && text.substr(text.size() - tail.size()) == tail;
}

// One change of a property, as a log shows it; no value for a property that was not there.
struct Change {
  size_t line;
  char side;
  std::string name;
  std::optional<std::string> before;
  std::optional<std::string> after;
};

// One place where the action began. The side is "c" or "s" for the two processes of Microsoft's engine.
struct Place {
  size_t line;
  char side;
};

// What is read from a log.
struct Log {
  std::map<char, Properties> ends;  // the lists at the end, by side
  std::vector<Change> changes;
  std::vector<Place> starts;                // "Action start" lines of the action
  std::vector<Place> calls;                 // lines with its entry point
  std::map<std::string, std::string> data;  // CustomActionData of each deferred action
};

// The text between `head` and `tail`, which begin and end the rest of `line` from `head` on.
std::optional<std::string> Between(const std::string& line, std::string_view head, std::string_view tail) {
  const size_t start = line.find(head);
  if (start == std::string::npos || !EndsWith(line, tail)) return std::nullopt;
  const size_t value = start + head.size();
  if (value + tail.size() > line.size()) return std::nullopt;
  return line.substr(value, line.size() - tail.size() - value);
}

char SideOf(const std::string& line, char fallback) {
  if (StartsWith(line, "MSI (c)")) return 'c';
  return StartsWith(line, "MSI (s)") || StartsWith(line, "MSI (N)") ? 's' : fallback;
}

// Reads "PROPERTY CHANGE: ..." of a line; a value may have line ends in it.
std::optional<Change> ChangeIn(const std::string& text, size_t line, char side) {
  if (auto rest = Between(text, "PROPERTY CHANGE: Adding ", "'.")) {
    const size_t middle = rest->find(" property. Its value is '");
    if (middle == std::string::npos) return std::nullopt;
    return Change{line, side, rest->substr(0, middle), std::nullopt, rest->substr(middle + 25)};
  }
  if (auto rest = Between(text, "PROPERTY CHANGE: Modifying ", "'.")) {
    const size_t first = rest->find(" property. Its current value is '");
    const size_t second = rest->rfind("'. Its new value: '");
    if (first == std::string::npos || second == std::string::npos) return std::nullopt;
    return Change{line, side, rest->substr(0, first), rest->substr(first + 33, second - first - 33),
                  rest->substr(second + 19)};
  }
  if (auto rest = Between(text, "PROPERTY CHANGE: Deleting ", "'.")) {
    const size_t middle = rest->find(" property. Its current value is '");
    if (middle == std::string::npos) return std::nullopt;
    return Change{line, side, rest->substr(0, middle), rest->substr(middle + 33), std::nullopt};
  }
  return std::nullopt;
}

// True if the action of a log is the one that is asked for: by its name, or by its entry point's name, which
// a dot and a word may follow.
bool IsAskedFor(const std::string& logged, const std::string& action) {
  return logged == action || (action.find('.') == std::string::npos && StartsWith(logged, action + "."));
}

// "Action start 12:34:56: NAME."
std::optional<std::string> StartedAction(const std::string& line) {
  if (!StartsWith(line, "Action start ")) return std::nullopt;
  const size_t space = line.find(": ", 13);
  if (space == std::string::npos || line.back() != '.') return std::nullopt;
  return line.substr(space + 2, line.size() - space - 3);
}

// "...
// CustomActionSchedule(Action=NAME,ActionType=3073,Source=BinaryData,Target=CustomAction15,CustomActionData=TEXT)"
void TakeData(Log& log, const std::string& line, const std::string& action) {
  auto inner = Between(line, "CustomActionSchedule(Action=", ")");
  if (!inner) return;
  const std::string name = inner->substr(0, inner->find(','));
  const size_t target = inner->find(",Target=");
  if (target == std::string::npos) return;
  const size_t comma = inner->find(',', target + 1);
  const std::string entry =
      inner->substr(target + 8, comma == std::string::npos ? comma : comma - target - 8);
  if (!IsAskedFor(name, action) && entry != action) return;
  const size_t data = inner->find(",CustomActionData=");
  log.data[name] = data == std::string::npos ? std::string() : inner->substr(data + 18);
}

Log Read(const std::vector<std::string>& lines, const std::string& action) {
  Log log;
  const std::string called = "Entrypoint: " + action;
  char side = 's';
  for (size_t index = 0; index < lines.size(); ++index) {
    const std::string& line = lines[index];
    side = SideOf(line, side);
    if (line.find("PROPERTY CHANGE: ") != std::string::npos) {
      std::string whole = line;
      size_t last = index;
      auto change = ChangeIn(whole, index, side);
      // The longest values of a package are texts of a few lines.
      while (!change && last + 1 < lines.size() && last < index + 50) {
        whole += "\n" + lines[++last];
        change = ChangeIn(whole, index, side);
      }
      if (change) log.changes.push_back(*change);
    } else if (StartsWith(line, "Property(") && line.size() > 13) {
      const size_t equals = line.find(" = ");
      if (equals != std::string::npos && line[10] == ')')
        log.ends[line[9] == 'C' ? 'c' : 's'][line.substr(13, equals - 13)] = line.substr(equals + 3);
    } else if (auto started = StartedAction(line); started && IsAskedFor(*started, action)) {
      log.starts.push_back({index, side});
    } else if (EndsWith(line, called)) {
      log.calls.push_back({index, side});
    } else {
      TakeData(log, line, action);
    }
  }
  return log;
}

// The values at a place: those of the end, with every later change taken back; without a list at the end,
// those of all changes before the place.
Properties ValuesAt(const Log& log, const Place& place) {
  Properties values;
  auto end = log.ends.find(place.side);
  const auto set = [&](const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      values[name] = *value;
    } else {
      values.erase(name);
    }
  };
  if (end != log.ends.end()) {
    values = end->second;
    for (auto change = log.changes.rbegin(); change != log.changes.rend(); ++change) {
      if (change->side == place.side && change->line > place.line) set(change->name, change->before);
    }
  } else {
    for (const Change& change : log.changes) {
      if (change.side == place.side && change.line < place.line) set(change.name, change.after);
    }
  }
  return values;
}

// Finds the data of a deferred action: what the log shows as scheduled or, in the log of an engine that does
// not show it, the property with the action's name.
std::optional<std::string> DataOf(const Log& log, const Properties& values, const std::string& action,
                                  const std::string& file) {
  std::map<std::string, std::string> found = log.data;
  if (found.empty()) {
    for (const auto& [name, value] : values) {
      if (IsAskedFor(name, action)) found[name] = value;
    }
  }
  if (auto exact = found.find(action); exact != found.end()) return exact->second;
  if (found.size() == 1) return found.begin()->second;
  if (found.empty()) return std::nullopt;
  std::string names;
  for (const auto& [name, value] : found) names += (names.empty() ? "" : ", ") + name;
  throw UsageError(
      file + " has the data of more than one action with this entry point. Name one of them: " + names + ".");
}

}  // namespace

std::vector<std::string> LinesOf(const std::string& bytes) {
  const std::wstring text = DecodedText(bytes);
  std::vector<std::string> lines;
  for (size_t start = 0; start < text.size();) {
    size_t end = std::min(text.find(L'\n', start), text.size());
    std::wstring_view line(text.data() + start, end - start);
    while (!line.empty() && line.back() == L'\r') line.remove_suffix(1);
    lines.push_back(rig::ToUtf8(line));
    start = end + 1;
  }
  return lines;
}

std::vector<std::string> ReadLines(const std::string& path) {
  HANDLE file =
      CreateFileW(rig::ToWide(path).c_str(), GENERIC_READ,
                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    throw UsageError("cannot read " + path + ": " +
                     (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND
                          ? "there is no such file."
                          : "error " + std::to_string(GetLastError()) + "."));
  }
  std::string bytes;
  std::vector<char> block(1 << 16);
  DWORD count = 0;
  while (ReadFile(file, block.data(), static_cast<DWORD>(block.size()), &count, nullptr) && count != 0) {
    bytes.append(block.data(), count);
  }
  CloseHandle(file);
  return LinesOf(bytes);
}

Properties ReadProperties(const std::vector<std::string>& lines, const std::string& file) {
  Properties values;
  for (size_t index = 0; index < lines.size(); ++index) {
    const std::string& line = lines[index];
    if (line.find_first_not_of(" \t") == std::string::npos || line[0] == '#' || line[0] == ';') continue;
    const size_t equals = line.find('=');
    if (equals == std::string::npos || equals == 0 || line.find_first_of(" \t\"") < equals) {
      throw UsageError(file + ", line " + std::to_string(index + 1) + ": a line must read NAME=VALUE.");
    }
    values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return values;
}

LoggedAction ReadLog(const std::vector<std::string>& lines, const std::string& action, bool isDeferred,
                     const std::string& file) {
  const Log log = Read(lines, action);
  // The line with the entry point counts more than the action's name, which a package chooses.
  const std::vector<Place>& places = log.calls.empty() ? log.starts : log.calls;
  if (places.empty() && log.data.empty()) throw UsageError(file + " has no run of " + action + ".");
  const Place place = places.empty() ? Place{0, 's'} : places.back();
  LoggedAction found;
  found.values = ValuesAt(log, place);
  if (places.size() > 1) {
    found.notes.push_back(file + " has " + std::to_string(places.size()) + " runs of " + action +
                          "; this is the last, in line " + std::to_string(place.line + 1));
  }
  if (log.changes.empty()) {
    found.notes.push_back(file + " does not say when properties changed: the values are those of its end");
  } else if (log.ends.count(place.side) == 0) {
    found.notes.push_back(file + " has no list of properties at its end: only those that changed are known");
  }
  if (isDeferred) {
    found.data = DataOf(log, found.values, action, file);
    if (!found.data) throw UsageError(file + " does not show the CustomActionData of " + action + ".");
  }
  for (auto value = found.values.begin(); value != found.values.end();) {
    if (value->second == kHiddenValue) {
      found.hidden.push_back(value->first);
      value = found.values.erase(value);
    } else {
      ++value;
    }
  }
  return found;
}

}  // namespace hxrun
