// The load configuration: tells the loader about Control Flow Guard, the stack guard and the imports.

#include <stddef.h>
#include <stdint.h>
#include <windows.h>

extern "C" {

// Defined by the linker: the table of functions that may be called through a pointer and the table of imports
// whose addresses are taken, their numbers of entries, and the flags of the image. Counts and flags are
// absolute symbols: their address is their value.
extern char __guard_fids_table[];
extern char __guard_fids_count[];
extern char __guard_iat_table[];
extern char __guard_iat_count[];
extern char __guard_flags[];

/// The stack guard (stack_guard.cpp); the loader chooses its value.
extern uint64_t __stack_chk_guard;

/// Used if the system does not guard calls: accepts every target. On ARM64 the target is in x15 and no
/// argument register may change.
__attribute__((naked)) void AcceptCallTarget() {
  asm("ret");
}

/// Used if the system does not guard calls: jumps to the target.
__attribute__((naked)) void DispatchCall() {
#if defined(__aarch64__)
  asm("br x9");
#else
  asm("jmp *%rax");
#endif
}

// The compiler defines the names: guarded calls go through these two pointers, which the loader replaces.
extern void (*const __guard_check_icall_fptr)();
extern void (*const __guard_dispatch_icall_fptr)();
__attribute__((section(".00cfg"), used)) void (*const __guard_check_icall_fptr)() = AcceptCallTarget;
__attribute__((section(".00cfg"), used)) void (*const __guard_dispatch_icall_fptr)() = DispatchCall;

}  // extern "C"

namespace {

// The head of IMAGE_LOAD_CONFIG_DIRECTORY64, up to the last field that this library fills. The system's own
// structure declares the addresses as numbers, but a number cannot be a link-time constant.
struct LoadConfig {
  DWORD size;
  DWORD timeDateStamp;
  WORD majorVersion;
  WORD minorVersion;
  DWORD globalFlagsClear;
  DWORD globalFlagsSet;
  DWORD criticalSectionDefaultTimeout;
  ULONGLONG deCommitFreeBlockThreshold;
  ULONGLONG deCommitTotalFreeThreshold;
  const void* lockPrefixTable;
  ULONGLONG maximumAllocationSize;
  ULONGLONG virtualMemoryThreshold;
  ULONGLONG processAffinityMask;
  DWORD processHeapFlags;
  WORD csdVersion;
  WORD dependentLoadFlags;
  const void* editList;
  const void* securityCookie;
  const void* seHandlerTable;
  ULONGLONG seHandlerCount;
  const void* guardCheckFunctionPointer;
  const void* guardDispatchFunctionPointer;
  const void* guardFunctionTable;
  const void* guardFunctionCount;
  // Two fields in one: the low half holds the flags, the high half the first part of CodeIntegrity, which
  // stays 0 (the flags are an address of less than 32 bits).
  const void* guardFlagsAndCodeIntegrity;
  DWORD codeIntegrityCatalogOffset;
  DWORD codeIntegrityReserved;
  const void* guardAddressTakenIatEntryTable;
  const void* guardAddressTakenIatEntryCount;
  const void* guardLongJumpTargetTable;
  ULONGLONG guardLongJumpTargetCount;
};
static_assert(offsetof(LoadConfig, dependentLoadFlags) == 78);
static_assert(offsetof(LoadConfig, guardCheckFunctionPointer) == 112);
static_assert(offsetof(LoadConfig, guardFlagsAndCodeIntegrity) == 144);
static_assert(sizeof(LoadConfig) == 192);

// LOAD_LIBRARY_SEARCH_SYSTEM32: the static imports come from the system folder only.
constexpr WORD kLoadFromSystem32 = 0x800;

}  // namespace

extern "C" {

/// The linker finds it by this name.
extern const LoadConfig _load_config_used;
__attribute__((used)) const LoadConfig _load_config_used = {
    .size = sizeof(LoadConfig),
    .dependentLoadFlags = kLoadFromSystem32,
    .securityCookie = &__stack_chk_guard,
    .guardCheckFunctionPointer = &__guard_check_icall_fptr,
    .guardDispatchFunctionPointer = &__guard_dispatch_icall_fptr,
    .guardFunctionTable = __guard_fids_table,
    .guardFunctionCount = __guard_fids_count,
    .guardFlagsAndCodeIntegrity = __guard_flags,
    .guardAddressTakenIatEntryTable = __guard_iat_table,
    .guardAddressTakenIatEntryCount = __guard_iat_count,
};

}  // extern "C"
