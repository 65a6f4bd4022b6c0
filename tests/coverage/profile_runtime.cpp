// What the compiler's counters need of a run-time library, for the builds that ./hx coverage tests. The test
// programs read the counters (rig/coverage.h), so nothing else of that library is needed.

extern "C" {

// The compiler makes each counted object refer to it, so that the run-time library is linked.
extern int __llvm_profile_runtime;
int __llvm_profile_runtime = 0;

// The byte before the names of the functions. Everything that reads the names of an image skips it.
extern const char hxFirstByteOfNames;
__attribute__((section(".lprfn$A"), used)) const char hxFirstByteOfNames = 0;

}  // extern "C"
