// hxrun: runs one entry point of hxsetup.dll without a package and without the installer.

#include <windows.h>
// These need windows.h first.
#include <msi.h>
#include <msiquery.h>

#include <algorithm>

#include "hxrun/com_objects.h"
#include "hxrun/entry_points.h"
#include "hxrun/machine.h"
#include "hxrun/modules.h"
#include "hxrun/options.h"
#include "hxrun/properties.h"
#include "hxrun/run.h"
#include "rig/crash.h"
#include "rig/failures.h"
#include "rig/function.h"
#include "rig/library.h"
#include "rig/print.h"
#include "rig/world/installer.h"

namespace hxrun {
namespace {

[[noreturn]] void End(ExitStatus status) {
  ExitProcess(status);
}

std::string InQuotes(const std::string& text) {
  return "\"" + text + "\"";
}

std::string MeaningOf(UINT result) {
  switch (result) {
    case ERROR_SUCCESS:
      return "success";
    case ERROR_INSTALL_USEREXIT:
      return "ends the installation, as if the user had cancelled it";
    case ERROR_INSTALL_FAILURE:
      return "ends the installation with an error";
    default:
      return "a code that no entry point is known to return";
  }
}

// Prints what the action does to its session as it happens.
class Reporter : public RunWatcher {
 public:
  Reporter(ChangeRule rule, bool isTraced, EndOfRun end)
      : RunWatcher(rule,
                   isTraced ? [](const std::string& line) { Print("call: " + line); }
                            : std::function<void(const std::string&)>(),
                   AskPerson, std::move(end)) {}

  void Before(const rig::Declaration& declaration, const uint64_t* words) override {
    RunWatcher::Before(declaration, words);
    const Names none;
    const Changes noChanges;
    const Call call{words, none, noChanges};
    if (declaration.Name() == "MsiSetPropertyA") Remember(call.Narrow(1));
    if (declaration.Name() == "MsiSetPropertyW") Remember(call.Wide(1));
  }

  void After(const rig::Declaration& declaration, const uint64_t* words, uint64_t result,
             const std::string& line) override {
    RunWatcher::After(declaration, words, result, line);
    const std::string& name = declaration.Name();
    if (name == "MsiProcessMessage" && session != nullptr && shown_ < session->Messages().size()) {
      ReportMessage(session->Messages()[shown_++]);
    } else if ((name == "MsiSetPropertyA" || name == "MsiSetPropertyW") && session != nullptr) {
      ReportProperty(result);
    }
  }

  // The session of the run.
  rig::InstallerSession* session = nullptr;

 private:
  void Remember(const std::string& property) {
    property_ = property;
    before_ = session == nullptr ? std::string() : session->Get(property);
  }

  void ReportProperty(uint64_t result) const {
    if (result != ERROR_SUCCESS) {
      Print("not set: " + property_ + " (error " + std::to_string(result) + ")");
      return;
    }
    const std::string value = session->Get(property_);
    Print("set: " + property_ + " = " + InQuotes(value) +
          (before_.empty() ? " (was not set)" : " (was " + InQuotes(before_) + ")"));
  }

  static void ReportMessage(const rig::Message& message) {
    if (message.type == INSTALLMESSAGE_INFO) {
      Print("log: " + message.text);
      return;
    }
    std::string text = message.fields.size() > 1 ? message.fields[1] : message.text;
    for (size_t field = 2; field < message.fields.size(); ++field)
      text += " " + InQuotes(message.fields[field]);
    Print("notice: " + text + " (its text is in the package's Error table); answered with OK");
  }

  size_t shown_ = 0;
  std::string property_;
  std::string before_;
};

// Puts the session's properties together. Files first: what the command line gives replaces their values.
struct Given {
  Properties values;
  std::string data;
  bool isDeferred = false;
  // What the user must know about the values.
  std::vector<std::string> notes;
};

bool IsIn(const std::vector<std::string>& names, const std::string& name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// True if a deferred action sees the property.
bool IsSeenDeferred(const std::string& name) {
  return name == "ProductCode" || name == "UserSID";
}

// Notes that the entry point does not read a property, and which one may be meant.
void NoteUnread(const EntryPoint& entry, const std::string& name, bool needsHint,
                std::vector<std::string>& notes) {
  if (IsIn(entry.reads, name) || IsSeenDeferred(name)) return;
  const std::string hint = NearestHint(name, entry.reads);
  if (needsHint && hint.empty()) return;
  notes.push_back(entry.name + std::string(" does not read ") + name + "." + hint);
}

// Does so for the properties of the command line.
void NoteUnreadOptions(const EntryPoint& entry, const Options& options, std::vector<std::string>& notes) {
  bool isAfterPassword = false;
  for (const auto& [name, value] : options.properties) {
    // After a password with a blank the name may be a part of it.
    if (!isAfterPassword || IsPropertyRead(name)) NoteUnread(entry, name, /*needsHint=*/false, notes);
    isAfterPassword = isAfterPassword || IsSecretProperty(name);
  }
}

Given Collect(const Options& options) {
  Given given;
  const EntryPoint& entry = *FindEntryPoint(options.entryPoint);
  given.isDeferred = options.IsDeferred();
  given.data = options.data;
  NoteUnreadOptions(entry, options, given.notes);
  Properties own;
  if (!options.propertiesFile.empty()) {
    own = ReadProperties(ReadLines(options.propertiesFile), options.propertiesFile);
    // The file may be one for several actions.
    for (const auto& [name, value] : own) NoteUnread(entry, name, /*needsHint=*/true, given.notes);
  }
  for (const auto& [name, value] : options.properties) own[name] = value;
  std::vector<std::string> hidden;
  if (!options.logFile.empty()) {
    const bool needsData = given.isDeferred && !options.hasData;
    const LoggedAction logged =
        ReadLog(ReadLines(options.logFile), options.action, needsData, options.logFile,
                own.count("ProductCode") == 0 ? std::string() : own["ProductCode"]);
    given.values = logged.values;
    hidden = logged.hidden;
    if (needsData) given.data = *logged.data;
    if (needsData || !given.isDeferred) {
      given.notes.insert(given.notes.end(), logged.notes.begin(), logged.notes.end());
    }
  }
  for (const auto& [name, value] : own) given.values[name] = value;
  for (const std::string& name : hidden) {
    const bool isRead = IsIn(entry.reads, name) && (!given.isDeferred || IsSeenDeferred(name));
    if (isRead && given.values.count(name) == 0) {
      given.notes.push_back("the log hides the value of " + name + ": give it as " + name + "=VALUE");
    }
  }
  return given;
}

// Goes to the folder in which the installer's process runs: relative paths of an action begin there.
void EnterSystemFolder() {
  wchar_t folder[MAX_PATH];
  const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
  if (length == 0 || length >= MAX_PATH || !SetCurrentDirectoryW(folder)) {
    throw Failure("cannot go to the system folder: error " + std::to_string(GetLastError()) + ".");
  }
}

void FillSession(rig::Rig& rig, rig::InstallerSession& session, Reporter& reporter, const Given& given) {
  for (const char* name : kSecretProperties) {
    auto found = given.values.find(name);
    if (found != given.values.end()) reporter.KeepSecret(rig::ToWide(found->second));
  }
  session.codePage = GetACP();
  for (const auto& [name, value] : given.values) {
    if (!given.isDeferred || IsSeenDeferred(name)) session.Set(name, rig::ToWide(value));
  }
  if (!given.isDeferred) return;
  session.Set("CustomActionData", rig::ToWide(given.data));
  // A deferred action cannot set a property.
  rig.On<::MsiSetPropertyA>([](MSIHANDLE, const char*, const char*) { return UINT{ERROR_FUNCTION_FAILED}; });
  rig.On<::MsiSetPropertyW>(
      [](MSIHANDLE, const wchar_t*, const wchar_t*) { return UINT{ERROR_FUNCTION_FAILED}; });
}

// Lists the changes of a dry run. Returns true if one of them would be made.
bool ListChanges(const RunWatcher& watcher) {
  const std::vector<RecordedChange>& changes = watcher.Recorded();
  const bool isAny =
      std::any_of(changes.begin(), changes.end(), [](const auto& change) { return !change.fails; });
  if (isAny) {
    Print("what would be done, in order:");
  } else {
    Print(changes.empty() ? "nothing would be changed"
                          : "nothing would be changed, because these calls would fail:");
  }
  for (const RecordedChange& change : changes) {
    Print((change.fails ? "  would fail to " : "  would ") + change.text);
  }
  return isAny;
}

ExitStatus Run(const Options& options) {
  const std::wstring folder = OwnFolder();
  const std::string version = CheckLibrary(folder);
  const Given given = Collect(options);
  EnterSystemFolder();

  const ChangeRule rule = options.dryRun ? ChangeRule::kRecord
                          : options.yes  ? ChangeRule::kAllow
                          : HasPerson()  ? ChangeRule::kAsk
                                         : ChangeRule::kRefuse;
  Reporter* current = nullptr;
  Reporter reporter(rule, options.trace, [&](ExitStatus status, const std::string& text) {
    if (status == kExitDependent) {
      ListChanges(*current);
      Print(text);
    } else {
      PrintError("hxrun: " + text);
    }
    End(status);
  });
  current = &reporter;
  rig::Rig rig(rig::Policy::kReal);
  rig.spoils = false;
  const std::string wrong = CheckEffects() + CheckMethods(rig, reporter);
  if (!wrong.empty()) throw Failure(wrong + "This hxrun is not complete. Take another release.");

  rig::InstallerSession session(rig);
  session.Install();
  session.rollback = options.rollback;
  FillSession(rig, session, reporter, given);
  rig.On<::MessageBoxA>([](HWND, const char* text, const char* title, UINT) {
    Print("box: " + Call::Text(title) + ": " + Call::Text(text) + "; answered with OK");
    return IDOK;
  });
  NameModules(rig);
  PassObjects(rig, reporter);

  Print("run as " + UserName() + ", not by the installer: rights and registry views may differ");
  Print(options.action + " of hxsetup.dll " + version + ", " + (given.isDeferred ? "deferred" : "immediate") +
        (options.rollback ? ", in rollback" : "") + (options.dryRun ? ", dry run: nothing is changed" : ""));
  for (const std::string& note : given.notes) Print("note: " + note);
  rig::Library library("hxsetup.dll", folder);
  reporter.session = &session;
  rig.watcher = &reporter;
  rig.Attach(library);
  const UINT result = library.CustomAction(std::stoi(options.entryPoint.substr(12)), rig.session);
  rig.watcher = nullptr;

  const bool isSupposed = options.dryRun && ListChanges(reporter);
  Print("returned " + std::to_string(result) + ": " + MeaningOf(result) +
        (isSupposed ? ", if all of this succeeds" : ""));
  return result == ERROR_SUCCESS ? kExitDone : kExitOtherCode;
}

ExitStatus Main() {
  const Options options = ReadOptions(SplitCommandLine(GetCommandLineW()));
  if (options.help) {
    Print(kHelp);
    return kExitDone;
  }
  if (options.list) {
    Print(EntryPointList());
    return kExitDone;
  }
  return Run(options);
}

}  // namespace
}  // namespace hxrun

// A fault that the rig finds means that this run cannot be trusted.
void rig::OnFault(const std::string& text) {
  hxrun::PrintError("hxrun: " + text);
  ExitProcess(hxrun::kExitFailed);
}

int main() {
  try {
    hxrun::End(hxrun::Main());
  } catch (const hxrun::UsageError& mistake) {
    hxrun::PrintError("hxrun: " + std::string(mistake.what()));
    hxrun::End(hxrun::kExitUsage);
  } catch (const std::exception& failure) {
    hxrun::PrintError("hxrun: " + std::string(failure.what()));
    hxrun::End(hxrun::kExitFailed);
  }
}
