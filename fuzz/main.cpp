// The fuzzer's entry points. HX_FUZZ_TARGET names the target, HX_FUZZ_IMAGE the library.

#include "image.h"
#include "require.h"
#include "target.h"
#include "world.h"

namespace {

const Target* target;

const char* NeedVariable(const char* name) {
  const char* value = getenv(name);
  REQUIRE(value, "%s is not set", name);
  return value;
}

}  // namespace

const Target kTargets[] = {
    {"formats", RunFormats}, {"raw-formats", RunRawFormats}, {"locale", RunLocale}, {"dates", RunDates},
    {"paths", RunPaths},     {"wildcards", RunWildcards},    {"engine", RunEngine}, {"actions", RunActions},
};
const size_t kTargetCount = std::size(kTargets);

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const char* name = NeedVariable("HX_FUZZ_TARGET");
  for (const Target& each : kTargets) {
    if (!strcmp(each.name, name)) target = &each;
  }
  REQUIRE(target, "there is no target %s", name);
  BeginWorld();
  LoadImage(NeedVariable("HX_FUZZ_IMAGE"));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  ResetImage();
  BeginWorld();
  Data data(bytes, size);
  target->run(&data);
  EndWorld();
  return 0;
}
