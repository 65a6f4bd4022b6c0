#include "install/engine.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <set>

#include "machine/state.h"

namespace install {

namespace {

const Difference kDifferences[] = {
    {"failure-in-log", "a failed action ends with \"Return value 0\"",
     "with \"Return value 3\" (2 if it was cancelled); an action of the script says \"returned actual error "
     "code\"",
     "Logging of Action Return Values"},
    {"script-in-log", "an action of the script is logged like one of a sequence, so its name starts twice",
     "a sequence logs its start once, and the script \"Executing op: CustomActionSchedule(Action=NAME\", a "
     "rollback "
     "\"Executing op: CustomActionRollback(Action=NAME\"",
     "Windows Installer Logging; Deferred Execution Custom Actions"},
    {"hidden-properties", "the log has the value of a hidden property", "the log has asterisks in its place",
     "MsiHiddenProperties property"},
    {"deferred-properties", "a deferred or rollback action reads all properties",
     "only CustomActionData, ProductCode and UserSID: the notices 26000 and 26001 are not sent, and the "
     "rollback of "
     "CustomAction23 deletes no account",
     "Obtaining Context Information for Deferred Execution Custom Actions"},
    {"rollback", "a rollback does not restore what the older version had installed",
     "it restores the older version's files, values, services and product", "Rollback Installation"},
    {"cancelled", "a script that is cancelled is not rolled back", "it is rolled back like one that failed",
     "Rollback Installation"},
    {"empty-folders", "the folder above that of the product stays after a removal",
     "a folder that the installation made is removed when it is empty",
     "RemoveFolders Action; Directory Table"},
    {"service-key", "a service's key has PreshutdownTimeout, and its program without quotation marks",
     "it has neither; the program has quotation marks if its path has blanks, and other values may be there",
     "CreateService; ServiceInstall Table"},
    {"service-without-password", "a service starts under any account, without a password",
     "a service whose account has a password starts only with it (error 1069), so the installation of such a "
     "service fails",
     "CreateService, StartService"},
    {"accounts", "a new account lives as long as the process that made it, and cannot be looked up",
     "it stays, it can be looked up, it gets the right to log on as a service and its access entries",
     "NetUserAdd; LsaAddAccountRights; LookupAccountName"},
    {"failure-actions", "the failure actions of a service cannot be queried (124)",
     "the service has none: \"service has no failure actions\"", "QueryServiceConfig2"},
    {"tasks", "no logon trigger and no idle settings, so no task is registered; no task runs",
     "both tasks are registered, and the agent's task runs in each session of a user",
     "ILogonTrigger, IIdleSettings, IRegisteredTask::RunEx"},
    {"schedule-service", "an administrator can stop the service \"Schedule\"", "nobody can stop it",
     "Task Scheduler: the service accepts no control \"stop\""},
    {"firewall", "rules are accepted and dropped", "rules are kept until they are removed",
     "INetFwRules::Add"},
    {"inheritance",
     "a list is as much as permission bits can hold, and every entry of a folder shows as inherited",
     "entries are inherited as their flags say", "ACE Inheritance Rules"},
    {"access-of-folders", "a new folder has the access of its owner and of everybody",
     "a new folder inherits the entries of the folder above it", "ACE Inheritance Rules"},
    {"file-versions", "a file with a higher version stays after a removal", "the removal deletes it",
     "RemoveFiles Action"},
    {"shared-key", "the key of the libraries' list can be deleted",
     "the system needs this key, and the tests leave it", "AppInit_DLLs"},
    {"interface", "dialogs need no display and no user, so a test runs with the full interface (level 5)",
     "the same test runs with the reduced interface (/qr, level 4), which asks nothing",
     "User Interface Levels"},
    {"links", "the system below Wine makes a link to a folder", "CreateSymbolicLink makes it",
     "CreateSymbolicLink"},
    {"case-of-names", "every folder can have two names that differ only in case",
     "only a folder that is made so (FILE_CS_FLAG_CASE_SENSITIVE_DIR)", "FILE_CASE_SENSITIVE_INFO"},
    {"shares", "a folder on a missing share is accepted",
     "the installation fails, because the share cannot be reached (error 1606)",
     "Windows Installer Error Messages"},
    {"files-in-use", "files in use are replaced or deleted at once, and the run ends with 0",
     "they are moved to C:\\Config.Msi until the machine restarts, and the run ends with 3010, which counts "
     "as success; an agent whose program was moved is not stopped, because its path is not the client's",
     "Logging of Reboot Requests; Windows Installer Error Codes"},
    {"tracking-library", "nothing loads the libraries of \"AppInit_DLLs\"",
     "without Secure Boot every new program with windows loads them, so the tests allow only signed ones "
     "(RequireSignedAppInit_DLLs = 1); the stand-in is not signed",
     "AppInit_DLLs in Windows 7; AppInit DLLs and Secure Boot"},
    {"notices-in-log", "a notice is one line of the log",
     "the log has a notice again, after \"Product: NAME -- \", because it goes to the event log too",
     "Event Logging"},
    {"whole-machine", "the whole machine is compared, because nothing else changes it",
     "the places of tests/machine/places.cpp are compared, because other programs change the rest at any "
     "time",
     "tests/machine/places.h"},
};
static_assert(std::size(kDifferences) == static_cast<size_t>(Differs::kCount));

// Writes the differences into the folder of the artifacts, for the report of the run.
class DifferencesFile : public testing::Environment {
 public:
  void SetUp() override {
    wchar_t folder[MAX_PATH];
    const DWORD length = GetEnvironmentVariableW(L"HX_ARTIFACTS", folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return;
    if (std::FILE* file = _wfopen((std::wstring(folder) + L"\\differences.txt").c_str(), L"wb")) {
      const std::string text = DifferencesText();
      std::fwrite(text.data(), 1, text.size(), file);
      std::fclose(file);
    }
  }
};

[[maybe_unused]] testing::Environment* const kDifferencesFile =
    testing::AddGlobalTestEnvironment(new DifferencesFile);

// The folder into which Microsoft's engine moves files that are in use, and the head of its own lines.
constexpr char kFolderOfMoved[] = "C:\\Config.Msi\\";
constexpr char kEngineLine[] = "MSI (";

// The lines of the library about an agent that is not the client's: the process, its path, and the client's.
constexpr char kAgentHead[] = "Hx Setup Log: agent restart:  ";
constexpr char kNotOurs[] = " is not ours, left alone (";
constexpr char kPathHead[] = "JN Setup Log: ";
constexpr char kStopped[] = " agent(s) stopped";

// A line that differs: what Wine's engine gives, and what Microsoft's gives in its place. `wine` is a part of
// the line.
struct LineRow {
  Differs difference;
  const char* wine;
  const char* with;                  // replaces `wine` in the line
  std::vector<const char*> instead;  // replace the whole line, if `with` is null; none drop it
};
const std::vector<LineRow>& LineRows() {
  static const std::vector<LineRow> rows = {
      {Differs::kAccounts, "could not grant right to logon as service", nullptr, {}},
      {Differs::kAccounts, "failure -36 (0xFFFFFFDC) setting ACL for ", "set ACL for ", {}},
      {Differs::kAccounts, "set ACL (-36) for ", "set ACL (0) for ", {}},
      {Differs::kFailureActions, "query service sizing failed:  124", "service has no failure actions", {}},
      {Differs::kTasks,
       "Hx Setup Log: Task install failed:  -1",
       nullptr,
       {"Hx Setup Log: Task installed", "Hx Setup Log: Task check OK"}},
      {Differs::kTasks, "Hx Setup Log: Task uninstall failed:  -5", nullptr, {}},
      {Differs::kTasks,
       "+ C:\\windows\\system32\\tasks\\Quillfern\\",
       nullptr,
       {"+ C:\\windows\\system32\\tasks\\Quillfern\\",
        "+ C:\\windows\\system32\\tasks\\Quillfern\\Ostrel Auto-update Task",
        "+ C:\\windows\\system32\\tasks\\Quillfern\\Ostrel User Agent Task"}},
      {Differs::kServiceKey, "\\PreshutdownTimeout = ", nullptr, {}},
  };
  return rows;
}

bool Has(const std::string& line, const std::string& text) {
  return line.find(text) != std::string::npos;
}

// The names of files differ in the case of their letters.
bool BeginsWithPath(const std::string& text, const std::string& path) {
  return _strnicmp(text.c_str(), path.c_str(), path.size()) == 0;
}

}  // namespace

Engine ThisEngine() {
  static const bool isWine = machine::IsWine();
  return isWine ? Engine::kWine : Engine::kWindows;
}

const Difference& RowOf(Differs difference) {
  return kDifferences[static_cast<size_t>(difference)];
}

void Note(Differs difference) {
  testing::Test::RecordProperty(std::string("differs_") + RowOf(difference).name, 1);
}

bool OnWindows(Differs difference) {
  Note(difference);
  return ThisEngine() == Engine::kWindows;
}

std::string LeftOut(Differs difference) {
  const Difference& row = RowOf(difference);
  return std::string("left out on Microsoft's engine (") + row.name + "): " + row.windows;
}

bool SaysFailed(Engine engine, const std::string& line, const std::string& action) {
  if (engine == Engine::kWine) return Has(line, ": " + action + ". Return value 0.");
  return Has(line, ": " + action + ". Return value 3.") || Has(line, ": " + action + ". Return value 2.") ||
         Has(line, "CustomAction " + action + " returned actual error code ");
}

std::string StartedAction(Engine engine, const std::string& line) {
  if (engine == Engine::kWine) {
    const size_t name = line.find(": ");
    if (line.rfind("Action start", 0) != 0 || name == std::string::npos || line.back() != '.') return "";
    return line.substr(name + 2, line.size() - name - 3);
  }
  // An operation that schedules a rollback action only keeps it for a rollback.
  constexpr int kRollbackType = 0x100;
  for (const char* head :
       {"Executing op: CustomActionSchedule(Action=", "Executing op: CustomActionRollback(Action="}) {
    const size_t start = line.find(head);
    if (start == std::string::npos) continue;
    const size_t name = start + std::string(head).size(), end = line.find_first_of(",)", name);
    const size_t type = line.find("ActionType=", name);
    const bool isKept = Has(head, "Schedule") && type != std::string::npos &&
                        std::atoi(line.c_str() + type + 11) & kRollbackType;
    return isKept || end == std::string::npos ? "" : line.substr(name, end - name);
  }
  return "";
}

std::vector<std::string> ScriptActions(Engine engine, const std::vector<std::string>& lines,
                                       const std::vector<std::string>& names) {
  std::vector<std::string> actions;
  std::set<std::string> scheduled;
  for (const std::string& line : lines) {
    const std::string action = StartedAction(engine, line);
    bool isWanted = false;
    for (const std::string& name : names)
      isWanted = isWanted || (!action.empty() && action.rfind(name, 0) == 0);
    if (isWanted && (engine == Engine::kWindows || !scheduled.insert(action).second))
      actions.push_back(action);
  }
  return actions;
}

std::vector<std::string> WithoutRepeats(Engine engine, const std::vector<std::string>& lines) {
  std::vector<std::string> others;
  for (const std::string& line : lines) {
    const size_t product = line.find("]: Product: ");
    const bool isRepeat = engine == Engine::kWindows && line.rfind(kEngineLine, 0) == 0 &&
                          product != std::string::npos && line.find(" -- ", product) != std::string::npos;
    if (!isRepeat) others.push_back(line);
  }
  return others;
}

unsigned long ResultOf(Engine engine, unsigned long code) {
  return engine == Engine::kWindows && code == ERROR_SUCCESS_REBOOT_REQUIRED ? ERROR_SUCCESS : code;
}

std::vector<std::string> WithMovedAgents(Engine engine, const std::vector<std::string>& lines) {
  if (engine == Engine::kWine) return lines;
  std::vector<std::string> others;
  unsigned long moved = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const bool isMoved = i + 2 < lines.size() && lines[i].rfind(kAgentHead, 0) == 0 &&
                         Has(lines[i], kNotOurs) &&
                         BeginsWithPath(lines[i + 1], std::string(kPathHead) + kFolderOfMoved);
    if (isMoved) {
      ++moved;
      i += 2;
      continue;
    }
    const size_t end = lines[i].find(kStopped);
    const bool isCount = lines[i].rfind(kAgentHead, 0) == 0 && end != std::string::npos;
    if (!isCount) {
      others.push_back(lines[i]);
      continue;
    }
    const unsigned long stopped = std::strtoul(lines[i].c_str() + sizeof kAgentHead - 1, nullptr, 10);
    others.push_back(kAgentHead + std::to_string(stopped + moved) + lines[i].substr(end));
  }
  return others;
}

std::vector<std::string> LinesOf(Engine engine, const std::vector<std::string>& lines) {
  if (engine == Engine::kWine) return lines;
  std::vector<std::string> expected;
  for (const std::string& line : lines) {
    const LineRow* found = nullptr;
    for (const LineRow& row : LineRows()) {
      if (Has(line, row.wine)) found = &row;
    }
    if (!found) {
      expected.push_back(line);
    } else if (found->with) {
      const size_t at = line.find(found->wine);
      expected.push_back(line.substr(0, at) + found->with +
                         line.substr(at + std::string(found->wine).size()));
    } else {
      expected.insert(expected.end(), found->instead.begin(), found->instead.end());
    }
  }
  return expected;
}

std::vector<std::string> Expected(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    for (const LineRow& row : LineRows()) {
      if (Has(line, row.wine)) Note(row.difference);
    }
  }
  return LinesOf(ThisEngine(), lines);
}

std::string DifferencesText() {
  std::string text;
  for (const Difference& row : kDifferences)
    text += std::string(row.name) + "\t" + row.wine + "\t" + row.windows + "\t" + row.source + "\n";
  return text;
}

}  // namespace install
