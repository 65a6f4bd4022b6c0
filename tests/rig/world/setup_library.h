// The setup library, which runs sections of INF files. Part of the world.
#pragma once

#include <string>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// Records the sections that the library runs; nothing is run.
class SetupLibrary {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit SetupLibrary(Rig& rig) : rig_(rig) {}
  /// Routes the function of this part here.
  void Install();

  /// The command lines that InstallHinfSectionA was given, in order.
  std::vector<std::string> sections;

 private:
  Rig& rig_;
};

}  // namespace rig
