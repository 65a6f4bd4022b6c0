// What a target asks about the machine after an action.
#pragma once

/// Lets the library keep the modules in which it looks up functions once, each loaded at most once for each
/// of these functions; it must have freed all others.
void KeepModules();
