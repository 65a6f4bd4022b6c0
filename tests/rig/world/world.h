// The world that an action meets: answers with state, per test. Used by the fixtures and the sweep.
#pragma once

#include "rig/com.h"
#include "rig/rig.h"
#include "rig/world/access_lists.h"
#include "rig/world/accounts.h"
#include "rig/world/directory.h"
#include "rig/world/firewall.h"
#include "rig/world/installer.h"
#include "rig/world/process.h"
#include "rig/world/profile.h"
#include "rig/world/registry.h"
#include "rig/world/services.h"
#include "rig/world/sessions.h"
#include "rig/world/setup_library.h"
#include "rig/world/shell.h"
#include "rig/world/tasks.h"
#include "rig/world/windows.h"

namespace rig {

/// Everything that a test arranges before the action runs and inspects afterwards. Every part is a member,
/// so every world has all of them, and no two parts answer the same function. Rig::On and Rig::UseReal
/// override a part for one function.
///
/// A part is a class in its own file: the constructor takes the rig and the parts that it uses, and Install
/// routes functions to it. World creates and installs the parts in the order of the members.
class World {
 public:
  /// Creates and installs the parts. Under Policy::kReal only the heap answers; the other parts exist but
  /// answer nothing.
  explicit World(Rig& rig);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Returns the current world, or null.
  static World* Current();

  /// Routes the function to the test's own answer; see Rig::On.
  template <auto Fn, class Answer>
  void On(Answer answer) {
    rig.On<Fn>(std::move(answer));
  }
  /// Routes the function to the real one.
  void UseReal(std::string_view name) { rig.UseReal(name); }

  /// Checks the end of an action: everything is freed and the error mode is restored. With `all`, everything
  /// that the test names as kept on purpose must really be kept.
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
  /// The setup library.
  SetupLibrary setup;
  /// Known folders and command lines.
  Shell shell;
  /// Terminal sessions, processes and privileges.
  Sessions sessions;
  /// Accounts of this computer and of domains.
  Accounts accounts;
  /// The access lists of files.
  AccessLists accessLists;
  /// COM objects.
  Com com;
  /// The directory of the domains.
  Directory directory;
  /// The firewall.
  Firewall firewall;
  /// The Task Scheduler.
  TaskScheduler tasks;
};

}  // namespace rig
