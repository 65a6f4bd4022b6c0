#include "rig/world/world.h"

#include "rig/function.h"

namespace rig {
namespace {

World* currentWorld = nullptr;

}  // namespace

World::World(Rig& theRig)
    : rig(theRig),
      heap(theRig),
      errorMode(theRig),
      modules(theRig),
      installer(theRig),
      registry(theRig),
      profile(theRig),
      clock(theRig),
      desktop(theRig),
      windows(theRig),
      services(theRig),
      setup(theRig),
      shell(theRig),
      sessions(theRig),
      accounts(theRig, sessions),
      accessLists(theRig, accounts),
      com(theRig),
      directory(theRig, com, accounts),
      firewall(theRig, com),
      tasks(theRig, com) {
  currentWorld = this;
  heap.Install();
  if (rig.GetPolicy() == Policy::kAnswered) {
    errorMode.Install();
    modules.Install();
    installer.Install();
    registry.Install();
    profile.Install();
    clock.Install();
    desktop.Install();
    windows.Install();
    services.Install();
    setup.Install();
    shell.Install();
    sessions.Install();
    accounts.Install();
    accessLists.Install();
    com.Install();
    directory.Install();
    firewall.Install();
    tasks.Install();
  }
}

World::~World() {
  currentWorld = nullptr;
}

World* World::Current() {
  return currentWorld;
}

void World::CheckEnd(bool all) {
  rig.ledger.CheckEmpty(all);
  errorMode.Check();
}

}  // namespace rig
