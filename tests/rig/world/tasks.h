// The Task Scheduler in memory, through its newer and its older interfaces. Part of the world.
#pragma once

#include <windows.h>

#include <mstask.h>
#include <taskschd.h>

#include <map>
#include <set>
#include <string>

#include "rig/com.h"

namespace rig {

/// The Task Scheduler: its root folder, at most one folder below it with tasks in it, and the work items of
/// the older interfaces. The objects are fakes, whose calls are in the trace: "service", "root", "folder",
/// "definition", "info", "settings", "idle", "triggers", "trigger" (with the interfaces "daily" and
/// "logon"), "principal", "actions", "action" (with the interface "program"), "task", "running";
/// "scheduler", "item", "schedule" and "file". They have only the methods that the library needs. Each text
/// must be a system string that the library holds.
///
/// On purpose: a few texts must be plain. There, a system string fails the test.
class TaskScheduler {
 public:
  /// Creates the part of the world that belongs to this rig.
  TaskScheduler(Rig& rig, Com& com) : rig_(rig), com_(com) {}
  /// Creates the objects.
  void Install();
  /// Makes the method ("folder.GetTask") return `error` and do nothing.
  void FailMethod(const std::string& method, HRESULT error) { failing_[method] = error; }
  /// Makes asking a trigger, an action or a work item for its interface fail: "daily", "logon", "program",
  /// "file".
  void MissingInterface(const std::string& name) { missing_.insert(name); }

  /// True if there is a folder below the root.
  bool hasFolder = false;
  /// The name of that folder. If empty, the first name that the library asks for becomes the name.
  std::string folderName;
  /// The names of the tasks in that folder.
  std::set<std::string> tasks;
  /// The sessions in which the user agent's task can be run; in other sessions RunEx fails.
  std::set<LONG> sessions;
  /// The users for whom it can be run; for other users RunEx fails.
  std::set<std::string> users;
  /// The names of the work items.
  std::set<std::string> items;
  /// The trigger of the last work item, and the bytes of that record.
  TASK_TRIGGER schedule = {};

 private:
  /// Gives `fake` the method `Member`, which `answer` answers unless a test makes it fail.
  template <auto Member, class Interface, class Answer>
  Declaration& Add(FakeObject<Interface>& fake, const char* name, Answer answer);
  /// Gives `fake` a method that accepts any arguments.
  template <auto Member, class Interface>
  void Accept(FakeObject<Interface>& fake, const char* name);
  /// Gives `fake` a method that returns `result`.
  template <auto Member, class Interface>
  void HandOut(FakeObject<Interface>& fake, const char* name, FakeBase& result);
  /// True if there is a folder of this name; sets folderName if it is empty.
  bool HasFolder(const std::string& name);
  /// Returns the error of the method, or S_OK.
  HRESULT FailureOf(const std::string& method) const;
  /// Fails the test if a text is not a system string that the library holds.
  void CheckText(BSTR text) const;
  /// Does the same for a text in a variant.
  void CheckText(const VARIANT& value) const;
  /// Accepts arguments that are not texts.
  template <class Other>
  void CheckText(const Other&) const {}
  /// Fails the test if a text is a system string.
  void CheckPlain(BSTR text) const;

  /// Creates the service and the folders.
  void InstallFolders();
  /// Creates the definition with its registration information and principal.
  void InstallDefinition();
  /// Creates the settings of the definition.
  void InstallSettings();
  /// Creates the triggers of the definition.
  void InstallTriggers();
  /// Creates the actions of the definition.
  void InstallActions();
  /// Creates the registered task.
  void InstallTask();
  /// Creates the objects of the older interfaces.
  void InstallWorkItems();

  Rig& rig_;
  Com& com_;
  std::map<std::string, HRESULT> failing_;
  std::set<std::string> missing_;
  std::string newItem_;  // the name of the last work item created
  FakeObject<ITaskFolder>* folder_ = nullptr;
  FakeObject<ITaskDefinition>* definition_ = nullptr;
  FakeObject<IRegisteredTask>* task_ = nullptr;
};

}  // namespace rig
