// The stack guard: its value is secret, and a buffer that overflows ends the process.

#include <gtest/gtest.h>

#include <cstring>

#include "rig/internals_test.h"
#include "unit/rig/rig_subject.h"

namespace stack_guard_test {

/// The value of the guard in the file.
constexpr uint64_t kNotChosen = 0x00002B992DDFA232;

class StackGuardTest : public rig::InternalsTest {
 protected:
  static uint64_t Guard() {
    uint64_t guard;
    memcpy(&guard, rig::FindInternal("__stack_chk_guard"), sizeof guard);
    return guard;
  }
};

TEST_F(StackGuardTest, IsChosenWhenTheLibraryIsLoaded) {
  EXPECT_NE(Guard(), kNotChosen);
  EXPECT_NE(Guard(), 0u);
}

TEST_F(StackGuardTest, TheLibraryChoosesIfTheLoaderDidNot) {
  // A loader that does not know the guard leaves it unchanged.
  auto* guard = static_cast<uint64_t*>(rig::FindInternal("__stack_chk_guard"));
  auto choose = reinterpret_cast<void (*)()>(rig::FindInternal("ChooseStackGuard"));
  const uint64_t before = *guard;
  choose();
  EXPECT_EQ(*guard, before) << "what is chosen stays";
  *guard = kNotChosen;
  choose();
  const uint64_t first = *guard;
  EXPECT_NE(first, kNotChosen);
  EXPECT_EQ(first & 0xFF, 0u);
  // Each call chooses another value.
  int same = 0;
  for (int i = 0; i < 16; ++i) {
    *guard = kNotChosen;
    choose();
    same += *guard == first ? 1 : 0;
  }
  EXPECT_EQ(same, 0);
  *guard = before;
}

/// The processor's counter, which the library mixes into the guard.
uint64_t CycleCounter() {
#if defined(__aarch64__)
  uint64_t counter;
  asm volatile("mrs %0, cntvct_el0" : "=r"(counter));
  return counter;
#else
  return __builtin_ia32_rdtsc();
#endif
}

/// The inverse of an odd number: their product is 1.
constexpr uint64_t InverseOf(uint64_t odd) {
  uint64_t inverse = odd;
  // Each step doubles the number of correct bits.
  for (int i = 0; i < 5; ++i) inverse *= 2 - odd * inverse;
  return inverse;
}

/// Returns the counter's value, from `earliest` to `latest`, of which `guard` was made, or 0 if it was made
/// of something else. `place` is the guard's address; the stack below `stack` was used.
uint64_t CounterOf(uint64_t guard, uint64_t place, uint64_t stack, uint64_t earliest, uint64_t latest) {
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
  static_assert(kFactor * InverseOf(kFactor) == 1);
  constexpr uint64_t kStackUsed = 16 << 10;
  // The guard does not have the highest byte of the mixed number.
  for (uint64_t highest = 0; highest < 256; ++highest) {
    const uint64_t halves = highest << 56 | guard >> 8;
    const uint64_t mixed = halves ^ halves >> 32;
    const uint64_t taken = mixed * InverseOf(kFactor) ^ place << 16;
    for (uint64_t here = stack & ~uint64_t{7}; here > stack - kStackUsed; here -= 8) {
      const uint64_t counter = taken ^ here;
      if (counter >= earliest && counter <= latest) return counter;
    }
  }
  return 0;
}

TEST_F(StackGuardTest, IsMadeOfTheTimeAndTheAddressesOfImageAndStack) {
  auto* guard = static_cast<uint64_t*>(rig::FindInternal("__stack_chk_guard"));
  auto choose = reinterpret_cast<void (*)()>(rig::FindInternal("ChooseStackGuard"));
  const uint64_t before = *guard;
  const auto place = reinterpret_cast<uint64_t>(guard);
  const auto stack = reinterpret_cast<uint64_t>(&place);
  // A processor may read its counter a little earlier or later than the program says.
  constexpr uint64_t kSlack = 10'000;
  for (int i = 0; i < 4; ++i) {
    *guard = kNotChosen;
    const uint64_t earliest = CycleCounter() - kSlack;
    choose();
    const uint64_t latest = CycleCounter() + kSlack;
    EXPECT_NE(CounterOf(*guard, place, stack, earliest, latest), 0u) << *guard;
    // A guard with one other bit is found to be wrong.
    EXPECT_EQ(CounterOf(*guard ^ 1 << 20, place, stack, earliest, latest), 0u) << *guard;
  }
  *guard = before;
}

/// True if the process ended by a fast fail.
bool EndsByTheGuard(int status) {
  return static_cast<DWORD>(status) == 0xC0000409;  // STATUS_STACK_BUFFER_OVERRUN
}

class StackOverrunTest : public rig_test::RigTest {};

TEST_F(StackOverrunTest, EndsTheProcess) {
  EXPECT_EQ(rig_test::SubjectOverrunStack(16), 1);
  EXPECT_EXIT(rig_test::SubjectOverrunStack(40), EndsByTheGuard, "");
}

}  // namespace stack_guard_test
