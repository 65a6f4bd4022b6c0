// The stack guard. Used by the library's entry.
#pragma once

extern "C" {

/// Chooses the guard if the system's loader has not. Call it before any function that has a guard.
void ChooseStackGuard();

}  // extern "C"
