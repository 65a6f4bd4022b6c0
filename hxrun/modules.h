// The modules of Windows that the library loads, and the functions that it finds in them by name. Used by the
// main function.
#pragma once

#include "rig/rig.h"

namespace hxrun {

/// Answers what concerns modules, so that the trace shows them by their names and sees the calls of functions
/// that the library finds by name.
void NameModules(rig::Rig& rig);

}  // namespace hxrun
