// The setup library, which runs sections of INF files. Part of a world.
#pragma once

#include <string>
#include <vector>

#include "rig/rig.h"

namespace rig {

/// Notes the sections that the library runs; nothing is run.
class SetupLibrary {
 public:
  /// The part of the world that belongs to this rig.
  explicit SetupLibrary(Rig& rig) : rig_(rig) {}
  /// Sends its function here.
  void Install();

  /// The command lines that InstallHinfSectionA was given, in order.
  std::vector<std::string> sections;

 private:
  Rig& rig_;
};

}  // namespace rig
