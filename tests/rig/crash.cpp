#include "rig/crash.h"

#include "rig/constant_guard.h"
#include "rig/failures.h"
#include "rig/guarded_heap.h"
#include "rig/library.h"
#include "rig/print.h"

namespace rig {
namespace {

/// One watched call. The handler finds the innermost one and resumes at its start.
struct Watch {
  CONTEXT start;
  volatile bool crashed = false;
  EXCEPTION_RECORD record = {};
  DWORD thread = GetCurrentThreadId();
  Watch* outer;
};

Watch* volatile innermostWatch = nullptr;

/// Makes a watch the innermost one while this object lives, even if the body throws.
class Watching {
 public:
  explicit Watching(Watch& watch) {
    watch.outer = innermostWatch;
    innermostWatch = &watch;
    outer_ = watch.outer;
  }
  ~Watching() { innermostWatch = outer_; }
  Watching(const Watching&) = delete;
  Watching& operator=(const Watching&) = delete;

 private:
  Watch* outer_;
};

bool IsCrash(DWORD code) {
  switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_BREAKPOINT:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_STACK_OVERFLOW:
      return true;
    default:
      return false;
  }
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
  Watch* watch = innermostWatch;
  if (watch == nullptr || watch->thread != GetCurrentThreadId() ||
      !IsCrash(pointers->ExceptionRecord->ExceptionCode)) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  watch->record = *pointers->ExceptionRecord;
  watch->crashed = true;
  *pointers->ContextRecord = watch->start;
  return EXCEPTION_CONTINUE_EXECUTION;
}

// What the handler of an overflow may use of the stack, in bytes.
constexpr ULONG kHandlerStack = 64 * 1024;
constexpr size_t kStackGuardPage = 4096;

// Makes the lowest page of the stack that is in use a guard page again. An overflow takes the guard away, and
// without it the next one ends the process.
__attribute__((noinline)) void GuardStackAgain() {
  MEMORY_BASIC_INFORMATION region = {};
  VirtualQuery(&region, &region, sizeof region);
  auto* at = static_cast<char*>(region.AllocationBase);
  while (VirtualQuery(at, &region, sizeof region) != 0 && region.State != MEM_COMMIT) {
    at = static_cast<char*>(region.BaseAddress) + region.RegionSize;
  }
  DWORD before = 0;
  VirtualProtect(region.BaseAddress, kStackGuardPage + kHandlerStack, PAGE_READWRITE | PAGE_GUARD, &before);
}

std::string Where(const void* code) {
  HMODULE module = nullptr;
  wchar_t path[MAX_PATH];
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<LPCWSTR>(code), &module) ||
      GetModuleFileNameW(module, path, MAX_PATH) == 0) {
    return HexText(reinterpret_cast<ULONG_PTR>(code));
  }
  const wchar_t* name = wcsrchr(path, L'\\');
  std::string text;
  for (const wchar_t* at = name == nullptr ? path : name + 1; *at != L'\0'; ++at) {
    text += static_cast<char>(*at);
  }
  return text + "+" + HexText(reinterpret_cast<ULONG_PTR>(code) - reinterpret_cast<ULONG_PTR>(module));
}

std::string Access(ULONG_PTR kind) {
#ifdef __aarch64__
  // Emulated processors do not distinguish the two.
  (void)kind;
  return "reading or writing ";
#else
  return kind == 0 ? "reading " : kind == 1 ? "writing " : "executing ";
#endif
}

// The place of an address that the library must not touch.
std::string PlaceOf(const void* address) {
  const std::string place = GuardedHeap::Get().Describe(address);
  const Library* library = Library::Current();
  if (!place.empty() || library == nullptr) {
    return place.empty() ? "outside the guarded heap" : place;
  }
  const ptrdiff_t past = PastConstant(library->Handle(), address);
  return past < 0 ? "outside the guarded heap"
                  : std::to_string(past) + (past == 1 ? " byte" : " bytes") + " past the end of a constant";
}

std::string Describe(const EXCEPTION_RECORD& record) {
  std::string text = "crash at " + Where(record.ExceptionAddress) + ": ";
  if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2) {
    text += Access(record.ExceptionInformation[0]) + HexText(record.ExceptionInformation[1]);
    return text + " (" + PlaceOf(reinterpret_cast<void*>(record.ExceptionInformation[1])) + ")";
  }
  if (record.ExceptionCode == EXCEPTION_ILLEGAL_INSTRUCTION || record.ExceptionCode == EXCEPTION_BREAKPOINT) {
    return text + "trap instruction (undefined behaviour found by the checked build)";
  }
  if (record.ExceptionCode == EXCEPTION_STACK_OVERFLOW) return text + "the stack is used up";
  return text + "exception " + HexText(record.ExceptionCode);
}

}  // namespace

// After a crash RtlCaptureContext returns a second time, with the registers of the first time. What changed
// in between must therefore be read from memory (volatile), and nothing else may live across the call.
__attribute__((noinline)) bool RunCatching(void (*body)(void*), void* argument, std::string& text) {
  static PVOID handler = AddVectoredExceptionHandler(1, OnException);
  (void)handler;
  ULONG handlerStack = kHandlerStack;
  SetThreadStackGuarantee(&handlerStack);
  Watch watch;
  Watching watching(watch);
  RtlCaptureContext(&watch.start);
  if (watch.crashed) {
    if (watch.record.ExceptionCode == EXCEPTION_STACK_OVERFLOW) GuardStackAgain();
    text = Describe(watch.record);
    return false;
  }
  body(argument);
  return true;
}

void ReportCrash(const std::string& text) {
  Fail(text);
  throw LibraryCrash(text);
}

}  // namespace rig
