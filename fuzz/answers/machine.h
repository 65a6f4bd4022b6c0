// What a target asks about the machine after an action.
#pragma once

/// Lets the library keep the modules in which it looks up functions once; it must have freed all others.
void KeepModules();
