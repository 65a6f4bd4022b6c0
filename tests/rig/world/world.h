// The world that an action meets: per-test answers with state. Used by the fixtures and the sweep.
#pragma once

#include "rig/com.h"
#include "rig/rig.h"
#include "rig/world/installer.h"
#include "rig/world/process.h"
#include "rig/world/profile.h"
#include "rig/world/registry.h"
#include "rig/world/services.h"
#include "rig/world/sessions.h"
#include "rig/world/shell.h"
#include "rig/world/tasks.h"
#include "rig/world/windows.h"

namespace rig {

/// Everything that a test arranges before the action runs and looks at afterwards. Each part answers its
/// functions; Rig::On and Rig::UseReal override it for one function.
class World {
 public:
  /// Under Policy::kReal only the heap is the world's; the other parts are there, but answer nothing.
  explicit World(Rig& rig);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// The world that is in force, or null.
  static World* Current();

  /// Sends the function to the test's own answer; see Rig::On.
  template <auto Fn, class Answer>
  void On(Answer answer) {
    rig.On<Fn>(std::move(answer));
  }
  /// Sends the function to the real one.
  void UseReal(std::string_view name) { rig.UseReal(name); }

  /// What must hold at the end of an action: everything given back, the error mode restored. With `all`, what
  /// the test names as kept on purpose must really have been kept.
  void CheckEnd(bool all);

  /// The rig that this world answers for.
  Rig& rig;
  /// The process heap.
  Heap heap;
  /// The error mode.
  ErrorMode errorMode;
  /// Modules and functions found by name.
  Modules modules;
  /// The installer's session.
  InstallerSession installer;
  /// The registry.
  Registry registry;
  /// The private profile files.
  ProfileFiles profile;
  /// Time and version.
  Clock clock;
  /// Message boxes.
  Desktop desktop;
  /// The windows of other programs.
  Windows windows;
  /// The service manager.
  Services services;
  /// Known folders and command lines.
  Shell shell;
  /// Terminal sessions, processes and privileges.
  Sessions sessions;
  /// COM objects.
  Com com;
  /// The Task Scheduler.
  TaskScheduler tasks;
};

}  // namespace rig
