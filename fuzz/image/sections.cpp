// What the compiler's instrumentation expects of a runtime in the image. The constructors that use it never
// run: the fuzzer finds the counters of the edges and the table of their places by the names of their
// sections.

#include <stdint.h>

extern "C" {

uint64_t hxCountersBegin asm("__start___sancov_cntrs") = 0;
uint64_t hxCountersEnd asm("__stop___sancov_cntrs") = 0;
uint64_t hxPlacesBegin asm("__start___sancov_pcs") = 0;
uint64_t hxPlacesEnd asm("__stop___sancov_pcs") = 0;

}  // extern "C"
