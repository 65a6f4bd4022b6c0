// The agent's tasks as the Task Scheduler itself tells them, in both of its forms. Used by the tests of the
// client agent, tests/install/agent_*_test.cpp.
#pragma once

#include <mstask.h>
#include <taskschd.h>

#include "install/agent_rig.h"

namespace install {

/// A COM interface that is released with its owner.
template <typename Interface>
class Owned {
 public:
  Owned() = default;
  ~Owned() { Reset(); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  Interface* operator->() const { return object_; }
  Interface* get() const { return object_; }
  /// Where a call leaves the interface; only while there is none.
  Interface** put() { return &object_; }
  /// The same for calls that find any interface.
  void** putVoid() { return reinterpret_cast<void**>(&object_); }
  void Reset() {
    if (object_) object_->Release();
    object_ = nullptr;
  }

 private:
  Interface* object_ = nullptr;
};

/// The agent's tasks by their names, and one of the same folder that has nothing to do with it.
extern const wchar_t kUserTask[], kUpdateTask[], kForeignTask[];

/// COM and the Task Scheduler, for as long as this lives.
class Scheduler {
 public:
  Scheduler();
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  /// Registers a daily task in the maker's folder, which is made where it lacks.
  void RegisterDaily(const std::wstring& name);
  /// Which of the three tasks the maker's folder holds; "(no folder)" where it is missing.
  Texts Tasks() const;
  /// Takes the three tasks away, and the maker's folder.
  void Clear();

  /// The older scheduler's work item of the agent, one line for each field; empty where there is none.
  Texts WorkItem() const;
  /// Makes such a work item that runs `program` and has no trigger.
  void MakeWorkItem(const std::wstring& program);
  void DeleteWorkItem();

 private:
  bool OpenFolder(Owned<ITaskFolder>& folder) const;

  Owned<ITaskService> service_;
  Owned<ITaskFolder> root_;
  Owned<ITaskScheduler> older_;
};

}  // namespace install
