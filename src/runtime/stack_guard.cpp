// The guard of the stack: a secret number that the compiler puts between the buffers of a function and its
// return address, and compares before the function returns. A buffer that overflows changes it; then the
// process ends.

#include "runtime/stack_guard.h"

#include <stdint.h>

namespace {

// The number that asks the system's loader for a secret one; the loader finds the guard through the load
// configuration.
constexpr uint64_t kNotChosen = 0x00002B992DDFA232;

// What RtlFailFast ends the process with: FAST_FAIL_STACK_COOKIE_CHECK_FAILURE.
constexpr unsigned kGuardChanged = 2;

uint64_t CycleCounter() {
#if defined(__aarch64__)
  uint64_t counter;
  asm volatile("mrs %0, cntvct_el0" : "=r"(counter));
  return counter;
#else
  return __builtin_ia32_rdtsc();
#endif
}

}  // namespace

extern "C" {

// The name is the compiler's.
uint64_t __stack_chk_guard = kNotChosen;

[[noreturn]] void __stack_chk_fail() {
#if defined(__aarch64__)
  register unsigned code asm("w0") = kGuardChanged;
  asm volatile("brk #0xF003" : : "r"(code));
#else
  register unsigned code asm("ecx") = kGuardChanged;
  asm volatile("int $0x29" : : "r"(code));
#endif
  __builtin_unreachable();
}

__attribute__((no_stack_protector)) void ChooseStackGuard() {
  if (__stack_chk_guard != kNotChosen) return;
  // The loader did not choose. Take the time, and the places of image and stack, which nobody outside knows.
  uint64_t here = reinterpret_cast<uint64_t>(&here);
  uint64_t mixed =
      (CycleCounter() ^ here ^ reinterpret_cast<uint64_t>(&__stack_chk_guard) << 16) * 0x9E3779B97F4A7C15;
  // The lowest byte is 0: no text can hold the guard.
  __stack_chk_guard = (mixed ^ mixed >> 32) << 8;
}

}  // extern "C"
