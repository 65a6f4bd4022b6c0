#include "hxrun/properties.h"

#include <windows.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "hxrun/entry_points.h"
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

// One installation in a log. An installation can start another one inside itself; both have a list of
// properties at their end.
struct Installation {
  char side;            // "c" or "s" for the two processes of Microsoft's engine, "n" for one inside
  bool isMarked;        // a line of the log says where it begins
  int part;             // the number of its log in a file with several
  std::string product;  // its ProductCode; empty if the log does not say it
  std::optional<Properties> atEnd;  // the list at its end
};

// One change of a property, as a log shows it; no value for a property that was not there.
struct Change {
  size_t line;
  size_t installation;
  std::string name;
  std::optional<std::string> before;
  std::optional<std::string> after;
};

// One place where the action began.
struct Place {
  size_t line;
  size_t installation;
};

// CustomActionData of a deferred action, as the log shows it when the action is scheduled.
struct Scheduled {
  size_t line;
  size_t installation;
  std::string action;
  std::string data;
};

// What is read from a log.
struct Log {
  std::vector<Installation> installations;
  std::vector<Change> changes;
  std::vector<Place> starts;  // "Action start" lines of the action
  std::vector<Place> calls;   // lines with its entry point
  std::vector<Scheduled> data;
  std::vector<Scheduled> hidden;  // of actions that may call any entry point, because the log hides which
  std::set<std::string> actions;  // the names of all actions that began
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
  if (StartsWith(line, "MSI (N)")) return 'n';
  return StartsWith(line, "MSI (s)") ? 's' : fallback;
}

// True if a line cannot be one of a value with line ends, because each entry of a log begins like this.
bool BeginsEntry(std::string_view line) {
  return StartsWith(line, "MSI (") || StartsWith(line, "Action ") || StartsWith(line, "=== ") ||
         StartsWith(line, "Property(");
}

// True if a log may have broken off in the first word of an entry, which is this line.
bool IsBrokenEntry(std::string_view line) {
  const std::string_view heads[] = {"MSI (", "Action ", "=== ", "Property("};
  return !line.empty() && std::any_of(std::begin(heads), std::end(heads),
                                      [&](std::string_view head) { return StartsWith(head, line); });
}

// The longest values of a package are texts of a few lines.
constexpr size_t kMostLines = 50;

// Reads "PROPERTY CHANGE: ..." of a line; a value may have line ends in it.
std::optional<Change> ChangeIn(const std::string& text, size_t line, size_t installation) {
  if (auto rest = Between(text, "PROPERTY CHANGE: Adding ", "'.")) {
    const size_t middle = rest->find(" property. Its value is '");
    if (middle == std::string::npos) return std::nullopt;
    return Change{line, installation, rest->substr(0, middle), std::nullopt, rest->substr(middle + 25)};
  }
  if (auto rest = Between(text, "PROPERTY CHANGE: Modifying ", "'.")) {
    const size_t first = rest->find(" property. Its current value is '");
    const size_t second = rest->rfind("'. Its new value: '");
    if (first == std::string::npos || second == std::string::npos) return std::nullopt;
    return Change{line, installation, rest->substr(0, first), rest->substr(first + 33, second - first - 33),
                  rest->substr(second + 19)};
  }
  if (auto rest = Between(text, "PROPERTY CHANGE: Deleting ", "'.")) {
    const size_t middle = rest->find(" property. Its current value is '");
    if (middle == std::string::npos) return std::nullopt;
    return Change{line, installation, rest->substr(0, middle), rest->substr(middle + 33), std::nullopt};
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

// "... CustomActionSchedule(Action=NAME,ActionType=3073,Source=BinaryData,Target=CustomAction15,
// CustomActionData=TEXT)". The data may have line ends in them. Returns the action, whatever it calls;
// `entry` becomes its target.
std::optional<Scheduled> ScheduledIn(const std::vector<std::string>& lines, size_t index,
                                     std::string& entry) {
  constexpr char kSchedule[] = "CustomActionSchedule(Action=";
  if (lines[index].find(kSchedule) == std::string::npos) return std::nullopt;
  // A line of the data may end like the entry, so the last one counts.
  auto inner = Between(lines[index], kSchedule, ")");
  std::string whole = lines[index];
  for (size_t next = index + 1; next < lines.size() && next < index + kMostLines; ++next) {
    if (BeginsEntry(lines[next])) break;
    whole += "\n" + lines[next];
    if (auto longer = Between(whole, kSchedule, ")")) inner = longer;
  }
  if (!inner) return std::nullopt;
  const std::string name = inner->substr(0, inner->find(','));
  const size_t target = inner->find(",Target=");
  if (target == std::string::npos) return std::nullopt;
  const size_t comma = inner->find(',', target + 1);
  entry = inner->substr(target + 8, comma == std::string::npos ? comma : comma - target - 8);
  const size_t data = inner->find(",CustomActionData=");
  return Scheduled{index, 0, name, data == std::string::npos ? std::string() : inner->substr(data + 18)};
}

// Reads a log line by line.
class LogReader {
 public:
  explicit LogReader(const std::string& action) : action_(action), called_("Entrypoint: " + action) {}

  Log Read(const std::vector<std::string>& lines) {
    for (size_t index = 0; index < lines.size(); ++index) ReadLine(lines, index);
    return std::move(log_);
  }

 private:
  // The installation to which the lines of a side belong now.
  size_t Current(char side) {
    std::vector<size_t>& open = open_[side];
    if (open.empty()) Begin(side, /*isMarked=*/false);
    return open.back();
  }
  void Begin(char side, bool isMarked) {
    open_[side].push_back(log_.installations.size());
    log_.installations.push_back({side, isMarked, part_, {}, {}});
  }

  void ReadLine(const std::vector<std::string>& lines, size_t index) {
    const std::string& line = lines[index];
    if (TakeProperty(lines, index)) return;
    side_ = SideOf(line, side_);
    // A value may have line ends in it, so other lines do not end a list.
    if (BeginsEntry(line)) list_.reset();
    if (StartsWith(line, "=== ") && line.find("logging started") != std::string::npos) {
      open_.clear();
      ++part_;
    } else if (line.find("******* RunEngine:") != std::string::npos) {
      Begin(side_, /*isMarked=*/true);
    } else if (auto product = Between(line, "******* Product: {", "}")) {
      log_.installations[Current(side_)].product = "{" + *product + "}";
    } else if (line.find("PROPERTY CHANGE: ") != std::string::npos) {
      TakeChange(lines, index);
    } else if (auto started = StartedAction(line)) {
      log_.actions.insert(*started);
      if (IsAskedFor(*started, action_)) log_.starts.push_back({index, Current(side_)});
    } else if (EndsWith(line, called_)) {
      log_.calls.push_back({index, Current(side_)});
    } else {
      TakeSchedule(lines, index);
    }
  }

  void TakeSchedule(const std::vector<std::string>& lines, size_t index) {
    std::string entry;
    auto scheduled = ScheduledIn(lines, index, entry);
    if (!scheduled) return;
    scheduled->installation = Current(side_);
    if (IsAskedFor(scheduled->action, action_) || entry == action_) {
      log_.data.push_back(*scheduled);
    } else if (entry == kHiddenValue) {
      log_.hidden.push_back(*scheduled);
    }
  }

  // "Property(S): NAME = VALUE", in the list at the end of an installation. The value has all lines up to the
  // next entry.
  bool TakeProperty(const std::vector<std::string>& lines, size_t index) {
    const std::string& line = lines[index];
    const size_t equals = line.find(" = ");
    if (!StartsWith(line, "Property(") || line.size() <= 13 || line[10] != ')' ||
        equals == std::string::npos) {
      return false;
    }
    const char letter = line[9];
    if (!list_ || letter != listLetter_) {
      listLetter_ = letter;
      list_ = End(letter);
    }
    Installation& installation = log_.installations[*list_];
    const std::string name = line.substr(13, equals - 13);
    std::string value = line.substr(equals + 3);
    size_t next = index + 1;
    for (; next < lines.size() && !BeginsEntry(lines[next]); ++next) {
      if (next + 1 < lines.size() || !IsBrokenEntry(lines[next])) value += "\n" + lines[next];
    }
    // Nobody knows whether empty lines at the end of a log belong to a value.
    if (next == lines.size()) value.resize(value.find_last_not_of('\n') + 1);
    // A log can break off in the value.
    if (next == lines.size() && !value.empty() && value.find_first_not_of('*') == std::string::npos)
      value = kHiddenValue;
    if (name == "ProductCode") installation.product = value;
    (*installation.atEnd)[name] = value;
    return true;
  }

  // Ends the installation whose list begins, and returns it.
  size_t End(char letter) {
    char side = letter == 'C' ? 'c' : letter == 'N' ? 'n' : 's';
    // An installation inside another one may have the other one's letter in its lines.
    if (side == 'n' && open_['n'].empty() && open_['s'].size() > 1) side = 's';
    const size_t ended = Current(side);
    open_[side].pop_back();
    log_.installations[ended].atEnd.emplace();
    return ended;
  }

  void TakeChange(const std::vector<std::string>& lines, size_t index) {
    std::string whole = lines[index];
    size_t last = index;
    const size_t installation = Current(side_);
    auto change = ChangeIn(whole, index, installation);
    while (!change && last + 1 < lines.size() && last < index + kMostLines && !BeginsEntry(lines[last + 1])) {
      whole += "\n" + lines[++last];
      change = ChangeIn(whole, index, installation);
    }
    if (!change) return;
    log_.changes.push_back(*change);
    if (change->name == "ProductCode" && change->after)
      log_.installations[installation].product = *change->after;
  }

  const std::string& action_;
  const std::string called_;
  Log log_;
  std::map<char, std::vector<size_t>> open_;
  char side_ = 's';
  int part_ = 0;
  // The installation whose list is read, and the letter of its lines.
  std::optional<size_t> list_;
  char listLetter_ = 0;
};

// The values at a place: those of the end of its installation, with every later change taken back; without a
// list at the end, those of all changes before the place.
Properties ValuesAt(const Log& log, const Place& place, size_t installation) {
  Properties values;
  const auto set = [&](const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      values[name] = *value;
    } else {
      values.erase(name);
    }
  };
  const auto isOf = [&](const Change& change) {
    return change.installation == place.installation || change.installation == installation;
  };
  if (const auto& atEnd = log.installations[installation].atEnd) {
    values = *atEnd;
    for (auto change = log.changes.rbegin(); change != log.changes.rend(); ++change) {
      if (isOf(*change) && change->line > place.line) set(change->name, change->before);
    }
  } else {
    for (const Change& change : log.changes) {
      if (isOf(change) && change.line < place.line) set(change.name, change.after);
    }
  }
  return values;
}

std::string Listed(const std::set<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// The products of installations, those that the log names.
template <class Item>
std::set<std::string> ProductsOf(const Log& log, const std::vector<Item>& items) {
  std::set<std::string> products;
  for (const Item& item : items) {
    const std::string& product = log.installations[item.installation].product;
    if (!product.empty()) products.insert(product);
  }
  return products;
}

// Leaves only what belongs to the wanted product, if the log has several.
template <class Item>
void LeaveProduct(const Log& log, std::vector<Item>& items, const std::string& wanted) {
  if (ProductsOf(log, items).count(wanted) == 0) return;
  items.erase(std::remove_if(
                  items.begin(), items.end(),
                  [&](const Item& item) { return log.installations[item.installation].product != wanted; }),
              items.end());
}

// Finds the installation whose list of properties belongs to a place. Throws UsageError if the log does not
// say where one installation begins and another one has its list too.
size_t InstallationOf(const Log& log, const Place& place, const std::string& action, const std::string& file,
                      const std::string& wanted) {
  const Installation& own = log.installations[place.installation];
  if (own.isMarked || !own.atEnd) return place.installation;
  std::set<std::string> products;
  size_t found = place.installation;
  for (size_t index = 0; index < log.installations.size(); ++index) {
    const Installation& other = log.installations[index];
    if (other.side != own.side || other.part != own.part || other.isMarked || !other.atEnd) continue;
    products.insert(other.product.empty() ? "(without a ProductCode)" : other.product);
    if (other.product == wanted) found = index;
  }
  if (products.size() < 2 || products.count(wanted) != 0)
    return products.size() < 2 ? place.installation : found;
  throw UsageError(file +
                   " has the properties of more than one product, and does not say with which of them " +
                   action + " ran: " + Listed(products) + ". Name one of them with ProductCode=CODE.");
}

// Notes which of several runs was taken.
template <class Item>
void NoteTaken(const Log& log, const std::vector<Item>& items, const std::string& what,
               const std::string& file, std::vector<std::string>& notes) {
  if (items.size() < 2) return;
  const Item& last = items.back();
  const std::set<std::string> products = ProductsOf(log, items);
  std::string note = file + " has " + std::to_string(items.size()) + " " + what +
                     "; this is the last, in line " + std::to_string(last.line + 1);
  if (products.size() > 1) {
    const std::string& product = log.installations[last.installation].product;
    note += ", of the product " + (product.empty() ? std::string("that the log does not name") : product) +
            ". ProductCode=CODE takes that of another: " + Listed(products);
  }
  notes.push_back(note);
}

// Says how to choose one of several actions, by their names. The command line takes only those names that
// begin with the entry point's; of the others it takes the data.
std::string HowToChoose(const std::map<std::string, std::string>& found, const std::string& entryPoint) {
  std::set<std::string> taken, others;
  for (const auto& [name, value] : found) (StartsWith(name, entryPoint + ".") ? taken : others).insert(name);
  if (taken.empty()) return ": " + Listed(others) + ". Give the data of one of them with --data.";
  const std::string names = ". Name one of them: " + Listed(taken) + ".";
  return others.empty() ? names : names + " For another, give the data with --data: " + Listed(others) + ".";
}

[[noreturn]] void ThrowHidden(const std::string& action, const std::string& file) {
  throw UsageError(file + " hides the CustomActionData of " + action + ": give it with --data.");
}

// True if the installer can run the action's entry point as a deferred action.
bool IsEverDeferred(const std::string& action) {
  const EntryPoint* entry = FindEntryPoint(action.substr(0, action.find('.')));
  return entry != nullptr && (entry->CanBeDeferred() || entry->CanRollBack());
}

// Returns " Did you mean X?" for the action of the log that is most like the one that is asked for by its
// name; empty for an entry point, and if no action of the same entry point is like it.
std::string ActionHint(const Log& log, const std::string& action) {
  const std::string head = action.substr(0, action.find('.') + 1);
  std::vector<std::string> names;
  // What they have in common makes no name like another.
  std::copy_if(log.actions.begin(), log.actions.end(), std::back_inserter(names),
               [&](const std::string& name) {
                 return !head.empty() && StartsWith(name, head) &&
                        !NearestHint(action.substr(head.size()), {name.substr(head.size())}).empty();
               });
  return NearestHint(action, names);
}

// Throws UsageError because the log has no place where the action ran.
[[noreturn]] void ThrowMissing(const Log& log, const std::string& action, bool isDeferred,
                               const std::string& file) {
  if (!isDeferred || log.hidden.empty()) {
    throw UsageError(file + " has no run of " + action + "." + ActionHint(log, action));
  }
  std::set<std::string> names;
  for (const Scheduled& one : log.hidden) names.insert(one.action);
  throw UsageError(file + " shows no run of " + action +
                   ", and hides what these actions call: " + Listed(names) + ". Give the data with --data.");
}

// Finds the data of a deferred action: what the log shows as scheduled or, in the log of an engine that does
// not show it, the property with the action's name.
std::optional<std::string> DataOf(const Log& log, const std::vector<Scheduled>& scheduled,
                                  const Properties& values, const std::string& action,
                                  const std::string& file, std::vector<std::string>& notes) {
  std::map<std::string, std::string> found;
  for (const Scheduled& one : scheduled) found[one.action] = one.data;
  // One of the hidden ones may be the action.
  if (found.empty() && !log.hidden.empty()) ThrowHidden(action, file);
  if (found.empty()) {
    for (const auto& [name, value] : values) {
      if (IsAskedFor(name, action)) found[name] = value;
    }
  }
  auto taken = found.find(action);
  if (taken == found.end() && found.size() > 1) {
    throw UsageError(file + " has the data of more than one action with this entry point" +
                     HowToChoose(found, action));
  }
  if (taken == found.end()) taken = found.begin();
  if (taken == found.end()) return std::nullopt;
  std::vector<Scheduled> same;
  std::copy_if(scheduled.begin(), scheduled.end(), std::back_inserter(same),
               [&](const Scheduled& one) { return one.action == taken->first; });
  NoteTaken(log, same, "CustomActionSchedule lines of " + taken->first, file, notes);
  if (taken->second == kHiddenValue) ThrowHidden(action, file);
  return taken->second;
}

// Notes what the log does not say of the values.
void NoteSource(const Log& log, size_t installation, const std::string& file,
                std::vector<std::string>& notes) {
  if (log.changes.empty()) {
    notes.push_back(file + " does not say when properties changed: the values are those of its end");
  } else if (!log.installations[installation].atEnd) {
    notes.push_back(file + " has no list of properties at its end: only those that changed are known");
  }
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
                     const std::string& file, const std::string& product) {
  Log log = LogReader(action).Read(lines);
  // The line with the entry point counts more than the action's name, which a package chooses.
  std::vector<Place> places = log.calls.empty() ? log.starts : log.calls;
  std::vector<Scheduled> scheduled = log.data;
  if (places.empty() && scheduled.empty()) {
    if (isDeferred || !IsEverDeferred(action) || log.hidden.empty())
      ThrowMissing(log, action, isDeferred, file);
    // Its data are known, so only the product counts.
    scheduled = log.hidden;
  }
  LeaveProduct(log, places, product);
  LeaveProduct(log, scheduled, product);
  LeaveProduct(log, log.hidden, product);
  const Place place =
      places.empty() ? Place{scheduled.back().line, scheduled.back().installation} : places.back();
  LoggedAction found;
  const size_t installation = InstallationOf(log, place, action, file, product);
  found.values = ValuesAt(log, place, installation);
  if (isDeferred) {
    found.data = DataOf(log, scheduled, found.values, action, file, found.notes);
    if (!found.data) throw UsageError(file + " does not show the CustomActionData of " + action + ".");
  }
  const bool isFromList = isDeferred && scheduled.empty();
  if (!isDeferred || (isFromList && ProductsOf(log, places).size() > 1)) {
    // Such a log can have the action's name twice for one run: where it is scheduled and where it runs.
    NoteTaken(log, places, "runs of " + action, file, found.notes);
  }
  if (!isDeferred || isFromList) NoteSource(log, installation, file, found.notes);
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
