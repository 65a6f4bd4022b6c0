#include "hxrun/run.h"

#include <lm.h>

#include <algorithm>

#include "hxrun/looks.h"
#include "rig/print.h"

namespace hxrun {
namespace {

// Answers a call as it would fail.
uint64_t Fail(const Outlook& outlook) {
  if (outlook.setsLastError) SetLastError(outlook.error);
  return outlook.result;
}

template <class T>
T Pointer(uint64_t word) {
  return reinterpret_cast<T>(static_cast<uintptr_t>(word));
}

bool StartsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

// The methods of every object, which say nothing about the machine.
bool IsOfEveryObject(const std::string& name) {
  const size_t dot = name.find('.');
  if (dot == std::string::npos) return false;
  const std::string method = name.substr(dot + 1);
  return method == "QueryInterface" || method == "AddRef" || method == "Release";
}

// From this length on, in characters, a password is hidden wherever it is in a line.
constexpr size_t kLongSecret = 8;

// True if the method gives an object in memory a value, which belongs to the change that follows.
bool GivesValue(const std::string& name) {
  return name.find(".put_") != std::string::npos || StartsWith(name, "ITask.Set") ||
         StartsWith(name, "ITaskTrigger.Set");
}

}  // namespace

RunWatcher::RunWatcher(ChangeRule rule, std::function<void(const std::string&)> print,
                       std::function<bool(const std::string&)> ask, EndOfRun end)
    : rule_(rule), print_(std::move(print)), ask_(std::move(ask)), end_(std::move(end)) {
}

void RunWatcher::KeepSecret(std::wstring_view text) {
  if (text.empty()) return;
  const std::string plain = rig::ToUtf8(text);
  const std::string quoted = rig::Quote(text);
  const std::string inner = quoted.substr(1, quoted.size() - 2);
  // A short password is a part of many words, and hiding it there would show it. All lines that can have it
  // have it in quotation marks.
  const auto where =
      text.size() < kLongSecret ? rig::Secret::Where::kWholeValue : rig::Secret::Where::kEverywhere;
  // The longer form first, so that no part of it is left.
  if (inner != plain) secrets_.push_back(std::make_unique<rig::Secret>(inner, where));
  secrets_.push_back(std::make_unique<rig::Secret>(plain, where));
}

void RunWatcher::Before(const rig::Declaration& declaration, const uint64_t* words) {
  const std::string& name = declaration.Name();
  if (name == "NetUserAdd") {
    KeepSecret(Pointer<const USER_INFO_2*>(words[2])->usri2_password);
  } else if (name == "IADsUser.SetPassword" && words[0] != 0) {
    KeepSecret(Pointer<const wchar_t*>(words[0]));
  } else if (name == "ITask.SetAccountInformation" && words[1] != 0) {
    KeepSecret(Pointer<const wchar_t*>(words[1]));
  } else if (name == "MsiSetPropertyW" && words[1] != 0 && words[2] != 0 &&
             std::wstring_view(Pointer<const wchar_t*>(words[1])) == L"PROP_ACCOUNTPASS") {
    KeepSecret(Pointer<const wchar_t*>(words[2]));
  }
}

void RunWatcher::EndDependent(const std::string& reason, size_t change) {
  const std::string& text = recorded_[change].text;
  end_(kExitDependent,
       "the rest depends on this change: " + text.substr(0, text.find('\n')) + " (" + reason + ")");
}

void RunWatcher::EndAsking(const std::string& call, size_t change) {
  EndDependent(call + " asks for what it would have changed", change);
}

void RunWatcher::EndUnmade(const std::string& object) {
  EndAsking(object, recorded_.size() - 1);
}

void RunWatcher::AskFor(const std::string& change) {
  if (rule_ == ChangeRule::kRefuse) {
    end_(kExitUsage, "this action would " + change +
                         ". Nothing was changed. Give --yes to allow it, or --dry-run to see all changes.");
  }
  if (!ask_("This action is about to " + change + ". Type yes to allow it and all later changes: ")) {
    end_(kExitUsage, "not allowed. Nothing was changed.");
  }
  rule_ = ChangeRule::kAllow;
}

void RunWatcher::AddToList(const Row& row, const Call& call, std::optional<uint32_t> error) {
  std::string change = row.describe(call);
  if (error) {
    const bool isNumber = *error < 0x10000;
    change += " (error " + (isNumber ? std::to_string(*error) : rig::HexText(*error)) + ")";
  }
  for (const std::string& detail : details_) change += "\n    " + detail;
  details_.clear();
  recorded_.push_back({change, error.has_value()});
}

uint64_t RunWatcher::Record(const rig::Declaration& declaration, const Row& row, const Call& call) {
  // The texts of both are those before the change.
  const std::vector<Touch> touches = row.touches == nullptr ? std::vector<Touch>() : row.touches(call);
  AddToList(row, call, std::nullopt);
  changes_.Add(touches, recorded_.size() - 1);
  if (StartsWith(declaration.Name(), "CreateFile")) EndUnmade("the open file");
  if (row.fill != nullptr) row.fill(call);
  const rig::Failing& failing = declaration.HowItFails();
  const bool returnsError = failing.success == rig::Failing::Success::kZero ||
                            failing.success == rig::Failing::Success::kNotNegative;
  return failing.success == rig::Failing::Success::kOtherThanFailing && !returnsError ? 1 : 0;
}

uint64_t RunWatcher::Change(const rig::Declaration& declaration, const Row& row, const Call& call) {
  const Outlook outlook = row.look(call);
  switch (outlook.kind) {
    case Outlook::Kind::kFails:
      AddToList(row, call, outlook.error);
      return Fail(outlook);
    case Outlook::Kind::kUnknown:
      if (outlook.change != Changes::kNone) EndAsking(declaration.Name(), outlook.change);
      AddToList(row, call, std::nullopt);
      EndDependent("nothing shows whether it would succeed", recorded_.size() - 1);
      return declaration.HowItFails().result;
    default:
      return Record(declaration, row, call);
  }
}

std::optional<uint64_t> RunWatcher::InDryRun(const rig::Declaration& declaration, const Row& row,
                                             const Call& call, bool isChange) {
  // A look at a file knows what the recorded changes make of it.
  const bool asks = row.needs != nullptr && !(isChange && StartsWith(declaration.Name(), "CreateFile"));
  const Subjects needs = asks ? row.needs(call) : Subjects();
  const size_t change = changes_.DependsOn(needs);
  if (change != Changes::kNone) EndAsking(declaration.Name(), change);
  if (isChange) return Change(declaration, row, call);
  FileState state;
  if (changes_.IsInNewFolder(needs, &state)) {
    // The new folder would hold only what this run put there, and that was looked at.
    SetLastError(state == FileState::kNoPath ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
    return declaration.HowItFails().result;
  }
  return std::nullopt;
}

std::optional<uint64_t> RunWatcher::Instead(const rig::Declaration& declaration, const uint64_t* words) {
  if (IsOfEveryObject(declaration.Name())) return std::nullopt;
  const Row* row = FindRow(declaration.Name());
  if (row == nullptr) {
    end_(kExitFailed, declaration.Name() + ": nothing says whether it changes the machine");
    return std::nullopt;
  }
  const Call call{words, names_, changes_};
  const bool isChange = row->effect == Effect::kChanges && (row->isChange == nullptr || row->isChange(call));
  if (rule_ == ChangeRule::kRecord) return InDryRun(declaration, *row, call, isChange);
  if (isChange && rule_ != ChangeRule::kAllow) {
    // Nothing is asked for a call that would fail, and it is not made either: the machine may have changed
    // after the look.
    const Outlook outlook = row->look(call);
    if (outlook.kind == Outlook::Kind::kFails) return Fail(outlook);
    AskFor(row->describe(call));
  }
  return std::nullopt;
}

void RunWatcher::NameHandle(const std::string& function, const Call& call, uint64_t result) {
  const auto opened = [&](int index) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(*Pointer<void**>(call.words[index])));
  };
  if (function == "RegOpenKeyExA" || function == "RegOpenKeyExW") {
    const std::string below = function.back() == 'W' ? call.Wide(1) : call.Narrow(1);
    const auto access = static_cast<REGSAM>(call.words[3]);
    names_[{kKeyName, opened(4)}] = call.Name(kKeyName, 0) + (below.empty() ? "" : "\\" + below) +
                                    ((access & KEY_WOW64_32KEY) != 0 ? " (32-bit view)" : "");
  } else if (function == "CreateFileA" || function == "CreateFileW") {
    const std::string path = function.back() == 'W' ? call.Wide(0) : call.Narrow(0);
    names_[{kFileName, result}] = rig::ToUtf8(FullPath(rig::ToWide(path)));
  } else if (function == "FindFirstFileW") {
    names_[{kSearchName, result}] = SearchedFolder(rig::ToWide(call.Wide(0)));
  } else if (function == "OpenServiceA" || function == "OpenServiceW") {
    names_[{kServiceName, result}] = function.back() == 'W' ? call.Wide(1) : call.Narrow(1);
  } else if (function == "OpenProcess") {
    wchar_t path[MAX_PATH] = {};
    DWORD size = MAX_PATH;
    QueryFullProcessImageNameW(Pointer<HANDLE>(result), 0, path, &size);
    names_[{kProcessName, result}] =
        std::to_string(static_cast<DWORD>(call.words[2])) + " (" + rig::ToUtf8(path) + ")";
  } else if (function == "FindWindowA") {
    names_[{kWindowName, result}] = call.Narrow(0) + " \"" + call.Narrow(1) + "\"";
  }
}

void RunWatcher::After(const rig::Declaration& declaration, const uint64_t* words, uint64_t result,
                       const std::string& line) {
  const DWORD error = GetLastError();
  const bool leftError = !declaration.Succeeded(result) && declaration.HowItFails().setsLastError;
  if (declaration.Succeeded(result)) NameHandle(declaration.Name(), Call{words, names_, changes_}, result);
  const Row* row = FindRow(declaration.Name());
  // A value of what the machine already has is a change of its own.
  const bool isDetail = GivesValue(declaration.Name()) && row != nullptr && row->effect == Effect::kKeeps;
  if (isDetail) details_.push_back(line);
  if (print_ && !line.empty()) print_(leftError ? line + " (error " + std::to_string(error) + ")" : line);
}

}  // namespace hxrun
