// Marks what the library keeps on purpose, as found in the trace. Used by tests of actions that load modules
// for good.
#pragma once

#include <initializer_list>
#include <string>

#include "rig/rig.h"

namespace rig {

/// Marks each of these modules as kept on purpose, if the trace shows that the library loaded it.
void KeepModules(Rig& rig, std::initializer_list<const char*> modules);

/// If the library did not find `function` in `module`, marks every resource of this kind that it holds now
/// as kept: the function would have freed it.
void KeepWithout(Rig& rig, const std::string& module, const std::string& function, const Kind& kind);

}  // namespace rig
