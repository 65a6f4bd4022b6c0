#include "hxrun/options.h"

#include <windows.h>

#include <algorithm>
#include <cctype>
#include <set>

#include "hxrun/entry_points.h"
#include "rig/print.h"

namespace hxrun {
namespace {

using rig::ToUtf8;

bool IsNameStart(wchar_t unit) {
  return (unit >= L'A' && unit <= L'Z') || (unit >= L'a' && unit <= L'z') || unit == L'_';
}

bool IsNameUnit(wchar_t unit) {
  return IsNameStart(unit) || (unit >= L'0' && unit <= L'9') || unit == L'.';
}

bool IsBlank(wchar_t unit) {
  return unit == L' ' || unit == L'\t';
}

// The length of NAME in a text that begins with NAME=; 0 if it does not.
size_t NameLength(std::wstring_view text) {
  if (text.empty() || !IsNameStart(text[0])) return 0;
  size_t end = 1;
  while (end < text.size() && IsNameUnit(text[end])) ++end;
  return end < text.size() && text[end] == L'=' ? end : 0;
}

// Takes the word NAME="VALUE" at `at`, whose value begins at `value`, after the quotation mark.
std::wstring TakeAssignment(std::wstring_view line, size_t& at, size_t value) {
  std::wstring word(line.substr(at, value - 1 - at));
  at = value;
  while (at < line.size()) {
    if (line[at] != L'"') {
      word += line[at++];
    } else if (at + 1 < line.size() && line[at + 1] == L'"') {
      word += L'"';
      at += 2;
    } else {
      ++at;
      break;
    }
  }
  while (at < line.size() && !IsBlank(line[at])) word += line[at++];
  return word;
}

// Takes the word at `at` as Windows programs do: 2n backslashes before a quotation mark are n and the mark's
// own meaning, 2n + 1 are n and a mark of the text.
std::wstring TakeWord(std::wstring_view line, size_t& at) {
  std::wstring word;
  bool isQuoted = false;
  while (at < line.size() && (isQuoted || !IsBlank(line[at]))) {
    size_t backslashes = 0;
    while (at < line.size() && line[at] == L'\\') ++backslashes, ++at;
    if (at == line.size() || line[at] != L'"') {
      word.append(backslashes, L'\\');
      if (backslashes == 0) word += line[at++];
      continue;
    }
    word.append(backslashes / 2, L'\\');
    if (backslashes % 2 != 0) {
      word += L'"';
    } else if (isQuoted && at + 1 < line.size() && line[at + 1] == L'"') {
      word += L'"';
      ++at;
    } else {
      isQuoted = !isQuoted;
    }
    ++at;
  }
  return word;
}

// Takes the word "NAME=VALUE" at `at`, which a shell has put in quotation marks. Windows PowerShell 5.1
// leaves a backslash before the last mark as it is, and later ones double it. So a backslash and a mark
// before a blank end the word, unless they close a mark of the text.
std::wstring TakeQuotedAssignment(std::wstring_view line, size_t& at) {
  std::wstring word;
  bool isMarked = false;
  for (++at; at < line.size();) {
    size_t backslashes = 0;
    while (at < line.size() && line[at] == L'\\') ++backslashes, ++at;
    if (at == line.size() || line[at] != L'"') {
      word.append(backslashes, L'\\');
      if (at < line.size()) word += line[at++];
      continue;
    }
    ++at;
    const bool isLast = at == line.size() || IsBlank(line[at]);
    if (backslashes % 2 != 0 && isLast && !isMarked) {
      word.append(backslashes, L'\\');
      break;
    }
    word.append(backslashes / 2, L'\\');
    if (backslashes % 2 != 0) {
      word += L'"';
      isMarked = !isMarked;
    } else if (!isLast && line[at] == L'"') {
      word += L'"';
      ++at;
    } else {
      break;
    }
  }
  while (at < line.size() && !IsBlank(line[at])) word += line[at++];
  return word;
}

// The number of edits that turn `a` into `b`: a letter changed, added, removed or swapped with the next one.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = i + j;
        continue;
      }
      const auto lower = [](char unit) { return std::tolower(static_cast<unsigned char>(unit)); };
      const bool same = lower(a[i - 1]) == lower(b[j - 1]);
      cost[i][j] = std::min({cost[i - 1][j - 1] + (same ? 0 : 1), cost[i - 1][j] + 1, cost[i][j - 1] + 1});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost[a.size()][b.size()];
}

// An option that takes no value.
struct Switch {
  const char* name;
  bool Options::* member;
};
constexpr Switch kSwitches[] = {
    {"--rollback", &Options::rollback}, {"--trace", &Options::trace}, {"--dry-run", &Options::dryRun},
    {"--yes", &Options::yes},           {"--list", &Options::list},   {"--help", &Options::help},
};

// An option that takes the next word.
struct Valued {
  const char* name;
  std::string Options::* member;
  const char* what;
};
constexpr Valued kValued[] = {
    {"--data", &Options::data, "the text of CustomActionData"},
    {"--properties", &Options::propertiesFile, "a file with lines NAME=VALUE"},
    {"--from-log", &Options::logFile, "a verbose log of the installer"},
};

std::vector<std::string> OptionNames() {
  std::vector<std::string> names;
  for (const Switch& one : kSwitches) names.emplace_back(one.name);
  for (const Valued& one : kValued) names.emplace_back(one.name);
  return names;
}

bool IsOption(const std::string& word) {
  const std::vector<std::string> names = OptionNames();
  return std::find(names.begin(), names.end(), word) != names.end();
}

// Returns a word that is not known without the value that may come after a name, because it may be a
// password.
std::string WithoutValue(const std::string& word) {
  return word.substr(0, word.find_first_of("=: \t"));
}

// Returns what a message shows of such a word. A word with a blank was in quotation marks; "..." is for the
// rest of it.
std::string Shown(const std::string& word) {
  const size_t end = word.find_first_of("=: \t");
  const bool hasBlank = end != std::string::npos && (word[end] == ' ' || word[end] == '\t');
  return "'" + word.substr(0, end) + (hasBlank ? " ..." : "") + "'";
}

[[noreturn]] void UnknownOption(const std::string& word) {
  throw UsageError("there is no option " + Shown(word) + "." +
                   NearestHint(WithoutValue(word), OptionNames()) + " hxrun --help lists the options.");
}

// Refuses a word that nobody can place and that comes after a password: it may be the rest of a password with
// a blank. So it is not shown.
void CheckNotOfPassword(const Options& options) {
  for (const auto& [name, value] : options.properties) {
    if (!IsSecretProperty(name)) continue;
    throw UsageError("a word after " + name +
                     " is neither an option nor an entry point nor NAME=VALUE. If the value " +
                     "has blanks, write " + name + "=\"VALUE\".");
  }
}

// Refuses a value that names no file and that may be a property, whose value may be a password. `needed` says
// what the option needs.
void CheckNotProperty(const std::wstring& value, const std::string& needed) {
  // The colon of a drive is in every full path.
  size_t colon = value.find(L':', 2);
  if (value.find_first_of(L"\\/") < colon) colon = value.find(L':', value.find_last_of(L"\\/"));
  const size_t end = std::min(value.find(L'='), colon);
  if (end == std::wstring::npos || GetFileAttributesW(value.c_str()) != INVALID_FILE_ATTRIBUTES) return;
  const std::string head = ToUtf8(value.substr(0, end));
  throw UsageError(needed + (NameLength(value) == end ? ", and " + head + " is a property."
                                                      : ", and there is no file '" + head +
                                                            ToUtf8(value.substr(end, 1)) + "...'."));
}

// Takes the value of an option, the word after `index`; moves `index` there.
std::string TakeValue(const Valued& option, const std::vector<std::wstring>& words, size_t& index) {
  const std::string needed = std::string(option.name) + " needs " + option.what + " after it";
  if (index + 1 == words.size()) throw UsageError(needed + ".");
  const std::string value = ToUtf8(words[++index]);
  if (IsOption(value)) throw UsageError(needed + ", and " + value + " is an option.");
  if (option.member == &Options::data) return value;
  if (value.empty()) throw UsageError(needed + ".");
  CheckNotProperty(words[index], needed);
  return value;
}

// Refuses an option with a value in the same word. Does not show the value.
void CheckNotJoined(const std::string& word) {
  const std::string name = WithoutValue(word);
  if (name == word || !IsOption(name)) return;
  const bool hasValue = std::any_of(std::begin(kValued), std::end(kValued),
                                    [&](const Valued& one) { return name == one.name; });
  throw UsageError(name + (hasValue ? " takes the next word as its value: write " + name + " VALUE."
                                    : " takes no value: write only " + name + "."));
}

// Sets what the option at `index` says; moves `index` to its last word.
void ReadOption(Options& options, std::set<std::string>& given, const std::vector<std::wstring>& words,
                size_t& index) {
  const std::string word = ToUtf8(words[index]);
  for (const Switch& one : kSwitches) {
    if (word == one.name) {
      options.*one.member = true;
      return;
    }
  }
  for (const Valued& one : kValued) {
    if (word != one.name) continue;
    if (!given.insert(word).second) throw UsageError(word + " is given twice.");
    options.*one.member = TakeValue(one, words, index);
    if (one.member == &Options::data) options.hasData = true;
    return;
  }
  CheckNotJoined(word);
  CheckNotOfPassword(options);
  UnknownOption(word);
}

void TakeAction(Options& options, const std::string& word) {
  const std::string entryPoint = word.substr(0, word.find('.'));
  const bool isKnown = FindEntryPoint(entryPoint) != nullptr;
  if (!isKnown) CheckNotOfPassword(options);
  if (!options.action.empty()) {
    throw UsageError(Shown(word) + " is one action too many: hxrun runs one, here " + options.action +
                     ". A property is given as NAME=VALUE, or NAME=\"VALUE\" if the value has blanks.");
  }
  options.action = word;
  options.entryPoint = entryPoint;
  if (isKnown) return;
  std::vector<std::string> names;
  for (const EntryPoint& entry : EntryPoints()) names.emplace_back(entry.name);
  throw UsageError("there is no entry point " + Shown(entryPoint) + "." +
                   NearestHint(WithoutValue(entryPoint), names) + " hxrun --list lists them.");
}

// Refuses a session that the installer never makes for this entry point.
void CheckSession(const Options& options) {
  const EntryPoint& entry = *FindEntryPoint(options.entryPoint);
  const std::string& name = options.entryPoint;
  if (options.rollback && !entry.CanBeDeferred() && !entry.CanRollBack()) {
    throw UsageError(name + " is immediate: a rollback never runs it. Leave out --rollback.");
  }
  if (options.hasData && !options.rollback && !entry.CanBeDeferred()) {
    throw UsageError(name +
                     " is immediate: it reads properties, not CustomActionData. Give them as NAME=VALUE" +
                     (entry.CanRollBack() ? ", or give --rollback." : "."));
  }
  if (!options.IsDeferred()) return;
  if (!options.hasData && options.logFile.empty()) {
    throw UsageError(name + (options.rollback ? " in a rollback" : "") +
                     " is deferred: it sees only CustomActionData. Give that with --data, " +
                     "or a log with --from-log.");
  }
  for (const auto& [property, value] : options.properties) {
    if (property != "ProductCode" && property != "UserSID") {
      throw UsageError("a deferred action sees only CustomActionData, ProductCode and UserSID, not " +
                       property + ". Give the data with --data.");
    }
  }
}

// Refuses what cannot be meant together.
void CheckTogether(const Options& options) {
  if (options.help) return;
  if (options.list) {
    const bool isAlone = options.action.empty() && options.properties.empty() && !options.hasData &&
                         options.propertiesFile.empty() && options.logFile.empty() && !options.rollback &&
                         !options.trace && !options.dryRun && !options.yes;
    if (!isAlone) throw UsageError("--list runs nothing: give it alone.");
    return;
  }
  if (options.action.empty())
    throw UsageError("an entry point is missing, such as CustomAction20. hxrun --list lists them.");
  if (options.dryRun && options.yes)
    throw UsageError("--yes allows changes, and --dry-run makes none: give one of them.");
  if (options.action != options.entryPoint && options.logFile.empty()) {
    throw UsageError("'" + options.action +
                     "' is the name of an action in a package, which only a log knows. Give " +
                     options.entryPoint + ", or the log with --from-log.");
  }
  CheckSession(options);
}

}  // namespace

const char kHelp[] =
    "usage: hxrun [OPTION...] ENTRYPOINT [NAME=VALUE...]\n"
    "       hxrun --list\n"
    "\n"
    "Runs one entry point of the hxsetup.dll beside it, without a package and without the installer. Prints "
    "the\n"
    "lines of the log, the properties that were set, the notices and the return code.\n"
    "\n"
    "  NAME=VALUE         a property of the session; NAME=\"VALUE WITH BLANKS\"\n"
    "  --properties FILE  more properties: lines NAME=VALUE\n"
    "  --from-log FILE    the properties that a verbose log of the installer shows where the action ran\n"
    "  --data TEXT        runs a deferred action with this CustomActionData\n"
    "  --rollback         the session is in rollback; the action sees what a deferred one sees\n"
    "  --dry-run          reads for real and changes nothing; lists what would have been changed\n"
    "  --trace            prints every call of Windows, with arguments and result\n"
    "  --yes              allows the action to change this machine\n"
    "  --list             lists the entry points: phase, job, properties\n"
    "  --help             prints this text\n"
    "\n"
    "The exit status is 0 if the action returned 0, 3 if it returned something else, 4 if a dry run ended "
    "before\n"
    "the action did, 2 after a mistake in the command line or without --yes, and 1 if hxrun itself failed.\n";

std::vector<std::wstring> SplitCommandLine(std::wstring_view line) {
  std::vector<std::wstring> words;
  size_t at = 0;
  bool isProgram = true;
  while (true) {
    while (at < line.size() && IsBlank(line[at])) ++at;
    if (at == line.size()) return words;
    if (isProgram) {
      // In the program's name a backslash never escapes.
      bool isQuoted = false;
      for (; at < line.size() && (isQuoted || !IsBlank(line[at])); ++at) isQuoted ^= line[at] == L'"';
      isProgram = false;
      continue;
    }
    const size_t name = NameLength(line.substr(at));
    const size_t value = at + name + 1;
    if (line[at] == L'"' && NameLength(line.substr(at + 1)) != 0) {
      words.push_back(TakeQuotedAssignment(line, at));
      continue;
    }
    if (name != 0 && value < line.size() && line[value] == L'"') {
      words.push_back(TakeAssignment(line, at, value + 1));
    } else {
      words.push_back(TakeWord(line, at));
    }
  }
}

bool IsSecretProperty(const std::string& name) {
  const std::vector<std::string> secret(std::begin(kSecretProperties), std::end(kSecretProperties));
  if (std::find(secret.begin(), secret.end(), name) != secret.end()) return true;
  return !IsPropertyRead(name) && !NearestHint(name, secret).empty();
}

bool Options::IsDeferred() const {
  const EntryPoint* entry = FindEntryPoint(entryPoint);
  return hasData || rollback || (entry != nullptr && entry->IsOnlyDeferred());
}

Options ReadOptions(const std::vector<std::wstring>& words) {
  Options options;
  // The options with a value so far.
  std::set<std::string> given;
  for (size_t index = 0; index < words.size(); ++index) {
    const std::wstring& word = words[index];
    const size_t equals = word.find(L'=');
    if (word.rfind(L"-", 0) == 0 || word.rfind(L"/", 0) == 0) {
      ReadOption(options, given, words, index);
    } else if (equals == std::wstring::npos) {
      TakeAction(options, ToUtf8(word));
    } else if (NameLength(word) == 0) {
      CheckNotOfPassword(options);
      throw UsageError("'" + ToUtf8(word.substr(0, equals)) +
                       "' is not the name of a property. A property is given as NAME=VALUE.");
    } else {
      options.properties.emplace_back(ToUtf8(word.substr(0, equals)), ToUtf8(word.substr(equals + 1)));
    }
  }
  CheckTogether(options);
  return options;
}

std::string NearestHint(const std::string& word, const std::vector<std::string>& candidates) {
  // A word that needs this many edits is another word, not a typing error.
  size_t least = (word.size() + 2) / 3 + 1;
  std::string hint;
  for (const std::string& candidate : candidates) {
    const size_t edits = Distance(word, candidate);
    if (edits < least) {
      least = edits;
      hint = " Did you mean " + candidate + "?";
    }
  }
  return hint;
}

}  // namespace hxrun
