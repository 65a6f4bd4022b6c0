// The stack guard: a secret number that the compiler puts between the buffers of a function and its return
// address, and checks before the function returns. If a buffer overflows, the number changes and the process
// ends.

#include "runtime/stack_guard.h"

#include <stdint.h>

namespace {

// This value asks the system's loader for a secret one; the loader finds the guard through the load
// configuration.
constexpr uint64_t kNotChosen = 0x00002B992DDFA232;

// The code that a fast fail ends the process with: FAST_FAIL_STACK_COOKIE_CHECK_FAILURE.
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

// The compiler defines the name.
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
  // The loader did not choose. Use the time and the addresses of image and stack, which no outsider knows.
  uint64_t here = reinterpret_cast<uint64_t>(&here);
  uint64_t mixed =
      (CycleCounter() ^ here ^ reinterpret_cast<uint64_t>(&__stack_chk_guard) << 16) * 0x9E3779B97F4A7C15;
  // The lowest byte is 0, so that no text can contain the guard.
  __stack_chk_guard = (mixed ^ mixed >> 32) << 8;
}

}  // extern "C"
