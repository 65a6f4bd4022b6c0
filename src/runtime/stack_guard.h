// The guard of the stack. Used by the library's entry, and by the load configuration.
#pragma once

#include <stdint.h>

extern "C" {

/// The guard. The compiler's code reads it; the system's loader chooses it.
extern uint64_t __stack_chk_guard;

/// Chooses the guard if the system's loader has not. Called before any function with a guard.
void ChooseStackGuard();

}  // extern "C"
