// What the library keeps on purpose, found in the trace. Used by tests of actions that load modules for good.
#pragma once

#include <initializer_list>
#include <string>

#include "rig/rig.h"

namespace rig {

/// Says that the library keeps on purpose each of these modules that it loaded.
void KeepModules(Rig& rig, std::initializer_list<const char*> modules);

/// If the library did not find `function` in `module`, says that it keeps everything of this kind that it
/// holds now: the function would have freed it.
void KeepWithout(Rig& rig, const std::string& module, const std::string& function, const Kind& kind);

}  // namespace rig
