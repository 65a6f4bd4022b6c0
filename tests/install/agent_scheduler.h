// The agent's tasks as the Task Scheduler itself reports them, through its newer and its older interface.
// Used by the tests of the client agent, tests/install/agent_*_test.cpp.
#pragma once

#include <mstask.h>
#include <taskschd.h>

#include "install/agent_rig.h"

namespace install {

/// A COM interface. The destructor releases it.
template <typename Interface>
class Owned {
 public:
  Owned() = default;
  ~Owned() { Reset(); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Interface* operator->() const { return object_; }
  Interface* get() const { return object_; }
  /// Output parameter for a call that returns the interface. Use it only while this owner is empty.
  Interface** put() { return &object_; }
  /// The same for calls that return any interface.
  void** putVoid() { return reinterpret_cast<void**>(&object_); }
  void Reset() {
    if (object_) object_->Release();
    object_ = nullptr;
  }

 private:
  Interface* object_ = nullptr;
};

/// The names of the agent's tasks, and of an unrelated task in the same folder.
extern const wchar_t kUserTask[], kUpdateTask[], kForeignTask[];

/// COM and the Task Scheduler. The destructor ends both.
class Scheduler {
 public:
  Scheduler();
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  /// Registers a daily task in the maker's task folder; creates the folder if it is missing.
  void RegisterDaily(const std::wstring& name);
  /// Returns which of the three tasks are in the maker's task folder; "(no folder)" if the folder is missing.
  Texts Tasks() const;
  /// Deletes the three tasks, and the maker's task folder.
  void Clear();

  /// Returns the agent's work item of the older scheduler, one line for each field; empty if there is none.
  Texts WorkItem() const;
  /// Creates such a work item, which runs `program` and has no trigger.
  void MakeWorkItem(const std::wstring& program);
  void DeleteWorkItem();

 private:
  bool OpenFolder(Owned<ITaskFolder>& folder) const;

  Owned<ITaskService> service_;
  Owned<ITaskFolder> root_;
  Owned<ITaskScheduler> older_;
};

}  // namespace install
