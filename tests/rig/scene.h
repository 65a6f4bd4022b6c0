// One run: a fresh library in a fresh world. Used by the fixtures and the sweep.
#pragma once

#include <exception>
#include <string>

#include "rig/library.h"
#include "rig/rig.h"
#include "rig/world/world.h"

namespace rig {

/// A rig, its world and a freshly loaded library attached to the rig. One at a time.
class Scene {
 public:
  /// Loads `file` from the library folder and attaches it to a fresh rig and world.
  Scene(const std::string& file, Policy policy) : rig(policy), world(rig), library(file) {
    rig.tracing = policy == Policy::kAnswered;
    rig.Attach(library);
  }

  /// The rig of the run.
  Rig rig;
  /// Its world.
  World world;
  /// The library under test.
  Library library;
};

}  // namespace rig
