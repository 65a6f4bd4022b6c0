// Whole actions on a made-up machine. After an action nothing is left over, no line of the log is too long,
// and the result is one that the action may return.

#include "answers/accounts.h"
#include "answers/installer.h"
#include "answers/machine.h"
#include "answers/objects.h"
#include "disk.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"
#include "world.h"

namespace {

// The form of the data that an action reads.
enum class Form {
  kNone,      // only properties
  kFirewall,  // the list of programs
  kAccess,    // an account, letters and a path
  kEngine,    // a command line of the copy/move engine
  kFolder,    // a folder
  kTask,      // the properties of tasks
  kAccount,   // the properties of the service's account
};

// An action. One that may fail returns 1602 or 1603 then.
struct Action {
  const char* name;
  Form form;
  bool mayFail;
};
constexpr Action kActions[] = {
    {"CustomAction1", Form::kNone, true},       {"CustomAction2", Form::kNone, false},
    {"CustomAction3", Form::kNone, false},      {"CustomAction4", Form::kNone, false},
    {"CustomAction5", Form::kFirewall, false},  {"CustomAction9", Form::kNone, false},
    {"CustomAction10", Form::kNone, false},     {"CustomAction11", Form::kNone, false},
    {"CustomAction12", Form::kNone, false},     {"CustomAction13", Form::kNone, false},
    {"CustomAction14", Form::kNone, false},     {"CustomAction15", Form::kEngine, true},
    {"CustomAction16", Form::kEngine, false},   {"CustomAction17", Form::kFolder, true},
    {"CustomAction19", Form::kFirewall, false}, {"CustomAction20", Form::kNone, false},
    {"CustomAction22", Form::kNone, false},     {"CustomAction25", Form::kAccess, false},
    {"CustomAction26", Form::kNone, false},     {"CustomAction29", Form::kNone, false},
    {"CustomAction30", Form::kNone, false},     {"CustomAction33", Form::kAccess, false},
    {"CustomAction34", Form::kNone, false},     {"CustomAction35", Form::kNone, false},
    {"CustomAction36", Form::kFolder, false},   {"CustomAction37", Form::kNone, false},
    {"CustomAction6", Form::kTask, false},      {"CustomAction7", Form::kNone, false},
    {"CustomAction8", Form::kNone, false},      {"CustomAction27", Form::kTask, false},
    {"CustomAction28", Form::kNone, false},     {"CustomAction31", Form::kTask, false},
    {"CustomAction32", Form::kNone, false},     {"CustomAction38", Form::kTask, false},
    {"CustomAction23", Form::kAccount, false},  {"CustomAction24", Form::kAccount, false},
};

// The properties that the actions read, besides their data.
constexpr const char16_t* kProperties[] = {
    u"REBOOT",
    u"PROP_SILENCE",
    u"ProductName",
    u"PROP_HOSTNAME",
    u"PROP_CLEAN",
    u"ProductCode",
    u"PROP_VERSION",
    u"VersionNT64",
    u"DIR_DATAFOLDER",
    u"DIR_UPG_DATA",
    u"DIR_UPG",
    u"DIR_UPG_HELPERDATA",
    u"DIR_UPG_VRDF",
    u"DIR_UPG_VRDF_PREFS",
    u"DIR_SERVER",
    u"PROP_UPGRADE",
    u"PROP_PRE75SERVER",
    u"PROP_COMPONENT",
    u"PROP_UPGRADE_PRODUCTCODE",
};

std::u16string WithoutZeros(std::u16string text) {
  text.erase(std::remove(text.begin(), text.end(), u'\0'), text.end());
  return text;
}

std::u16string TakeList(Data* data) {
  static constexpr const char16_t* kSelectors[] = {u"", u"@tcp", u"@UDP", u"@all", u"@", u"@x"};
  std::u16string list;
  for (uint32_t count = data->Below(4); count; --count) {
    list += data->Wide(12);
    list += data->OneOf(kSelectors);
    if (data->Below(8)) list += u"/";
    list += TakePath(data);
    if (data->Below(8)) list += u";";
  }
  return list;
}

std::u16string TakeAccess(Data* data) {
  static constexpr const char16_t* kAccounts[] = {u"LocalSystem", u"\\user", u"DOMAIN\\user", u"other\\user",
                                                  u".\\x"};
  std::u16string text = data->Flag() ? data->OneOf(kAccounts) : data->Wide(80);
  text += u"*";
  if (data->Flag()) text += data->Flag() ? u"rwx*" : u"r*";
  return text + TakePath(data);
}

std::u16string TakeLine(Data* data) {
  std::u16string line = u"hx";
  for (uint32_t count = data->Below(5); count; --count) {
    static constexpr const char16_t* kGroups[] = {u"", u" -m", u" -or", u" -bor", u" -in", u" -l"};
    line += data->OneOf(kGroups);
    line += u" \"" + TakePath(data) + u"\"";
  }
  return line;
}

std::u16string TakeData(Data* data, Form form) {
  switch (form) {
    case Form::kFirewall:
      return TakeList(data);
    case Form::kAccess:
      return TakeAccess(data);
    case Form::kEngine:
      return TakeLine(data);
    case Form::kFolder:
      return (data->Flag() ? u"-" : u"") + TakePath(data);
    default:
      return {};
  }
}

// Sets the properties from which tasks are made; some of them have no value, or a wrong one.
void ChooseTask(Data* data) {
  for (const char16_t* name : {u"PROP_TASKUSER", u"PROP_TASKPASS", u"PROP_TASKPARAM"}) {
    SetProperty(name, WithoutZeros(data->Wide(140)));
  }
  for (const char16_t* name : {u"PROP_TASKHOUR", u"PROP_TASKTIME", u"PROP_UPDATEINTERVAL"}) {
    SetProperty(name,
                data->Flag() ? WideOf(std::to_string(data->Take<int16_t>())) : WithoutZeros(data->Wide(70)));
  }
  for (const char16_t* name : {u"DIR_CLIENT", u"DIR_APPDATA"}) {
    SetProperty(name, WithoutZeros(TakePath(data)));
  }
}

// Sets most of the properties from which the account is made, or by which it is found.
void ChooseAccount(Data* data) {
  static constexpr struct {
    const char16_t* name;
    const char16_t* values[4];
  } kOwn[] = {
      {u"PROP_ACCOUNTTYPE", {u"0", u"1", u"0", u"2"}},
      {u"PROP_ACCOUNTID", {u"user", u"USER", u"x", u"user"}},
      {u"PROP_ACCOUNTDESC", {u"The account", u"%s", u"\"", u" "}},
      {u"PROP_ACCOUNTNAME", {u"user", u"DOMAIN\\user", u"\\", u"user"}},
      {u"PROP_ACCOUNTDOMAIN", {u"DOMAIN", u".", u"PC7", u"pc7"}},
      {u"PROP_SERVICENAME", {u"VANTOR", u"HOST", u"/", u"VANTOR"}},
  };
  for (const auto& property : kOwn) {
    const uint32_t kind = data->Below(8);
    if (kind == 0) continue;
    SetProperty(property.name, WithoutZeros(kind == 1 ? data->Wide(255) : data->OneOf(property.values)));
  }
}

void ChooseProperties(Data* data, Form form) {
  if (form == Form::kTask) ChooseTask(data);
  if (form == Form::kAccount) ChooseAccount(data);
  SetProperty(form == Form::kFirewall ? u"PROP_FIREWALLDATA" : u"CustomActionData",
              WithoutZeros(TakeData(data, form)));
  static constexpr const char16_t* kValues[] = {u"-1", u"1", u"0", u"Force", u"yes", u"vantor"};
  for (uint32_t count = data->Below(8); count; --count) {
    const char16_t* name = data->OneOf(kProperties);
    const uint32_t kind = data->Below(4);
    std::u16string value = kind == 0 ? data->OneOf(kValues) : kind == 1 ? data->Wide(255) : TakePath(data);
    if (kind == 3 && data->Below(8) == 0) value.append(data->Below(400), u'x');
    SetProperty(name, WithoutZeros(value));
  }
}

}  // namespace

void RunActions(Data* data) {
  const Action& action = data->OneOf(kActions);
  TakeFailure(data);
  ChooseClock(data);
  ChooseDisk(data);
  SetRollback(data->Below(8) == 1);
  ChooseProperties(data, action.form);
  // What is left are the answers of the machine.
  world.data = *data;
  auto run = reinterpret_cast<ImageFunction<UINT(uint32_t)>>(FindExport(action.name));
  const UINT result = run(kSession);
  const bool isFailure = result == ERROR_INSTALL_USEREXIT || result == ERROR_INSTALL_FAILURE;
  REQUIRE(result == ERROR_SUCCESS || (action.mayFail && isFailure), "%s returns %u", action.name, result);
  REQUIRE(ComStarts() == 0, "%s does not end COM", action.name);
  CheckNewAccount();
  KeepModules();
}
