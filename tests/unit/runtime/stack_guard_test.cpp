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
