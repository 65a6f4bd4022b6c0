// The pointers through which guarded calls go, for programs without Control Flow Guard: the core of the rig
// is compiled for hxrun, which has it. Every target is accepted.

extern "C" {

/// Accepts the target. On ARM64 no argument register may change.
__attribute__((naked)) void AcceptAnyTarget() {
  asm("ret");
}

/// Jumps to the target.
__attribute__((naked)) void JumpToTarget() {
#if defined(__aarch64__)
  asm("br x9");
#else
  asm("jmp *%rax");
#endif
}

// The compiler defines the names.
extern void (*const __guard_check_icall_fptr)();
extern void (*const __guard_dispatch_icall_fptr)();
void (*const __guard_check_icall_fptr)() = AcceptAnyTarget;
void (*const __guard_dispatch_icall_fptr)() = JumpToTarget;

}  // extern "C"
