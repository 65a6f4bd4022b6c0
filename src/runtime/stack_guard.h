// The guard of the stack. Used by the library's entry.
#pragma once

extern "C" {

/// Chooses the guard if the system's loader has not. Called before any function with a guard.
void ChooseStackGuard();

}  // extern "C"
