// Passes the calls of the image's address checks to the checker of this process.

#include "image.h"

extern "C" {
void __asan_handle_no_return();
void* __asan_memcpy(void* to, const void* from, size_t size);
void* __asan_memmove(void* to, const void* from, size_t size);
void* __asan_memset(void* to, int value, size_t size);
#define DECLARE_REPORT(name) void name(uintptr_t address);
#define DECLARE_SIZED(name) void name(uintptr_t address, size_t size);
DECLARE_REPORT(__asan_report_load1)
DECLARE_REPORT(__asan_report_load2)
DECLARE_REPORT(__asan_report_load4)
DECLARE_REPORT(__asan_report_load8)
DECLARE_REPORT(__asan_report_load16)
DECLARE_REPORT(__asan_report_store1)
DECLARE_REPORT(__asan_report_store2)
DECLARE_REPORT(__asan_report_store4)
DECLARE_REPORT(__asan_report_store8)
DECLARE_REPORT(__asan_report_store16)
DECLARE_SIZED(__asan_report_load_n)
DECLARE_SIZED(__asan_report_store_n)
DECLARE_SIZED(__asan_set_shadow_00)
DECLARE_SIZED(__asan_set_shadow_f1)
DECLARE_SIZED(__asan_set_shadow_f2)
DECLARE_SIZED(__asan_set_shadow_f3)
DECLARE_SIZED(__asan_set_shadow_f5)
DECLARE_SIZED(__asan_set_shadow_f8)
}

namespace {

// A function of the checker, called with the convention of Windows.
template <auto function>
struct Passed;
template <typename Result, typename... Arguments, Result (*function)(Arguments...)>
struct Passed<function> {
  IMAGE_ABI static Result Call(Arguments... arguments) { return function(arguments...); }
};

#define PASS(name) {#name, reinterpret_cast<void*>(&Passed<&(name)>::Call)}

const Answers kAddressChecks{
    PASS(__asan_handle_no_return), PASS(__asan_memcpy),        PASS(__asan_memmove),
    PASS(__asan_memset),           PASS(__asan_report_load1),  PASS(__asan_report_load2),
    PASS(__asan_report_load4),     PASS(__asan_report_load8),  PASS(__asan_report_load16),
    PASS(__asan_report_load_n),    PASS(__asan_report_store1), PASS(__asan_report_store2),
    PASS(__asan_report_store4),    PASS(__asan_report_store8), PASS(__asan_report_store16),
    PASS(__asan_report_store_n),   PASS(__asan_set_shadow_00), PASS(__asan_set_shadow_f1),
    PASS(__asan_set_shadow_f2),    PASS(__asan_set_shadow_f3), PASS(__asan_set_shadow_f5),
    PASS(__asan_set_shadow_f8),
};

}  // namespace
