// Separate stacks: values left on them can be found, and exceptions thrown on them are passed on.

#include "rig/own_stack.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace rig_own_stack_test {

// Writes a text to the stack, letter by letter.
__attribute__((noinline)) void Leave(const std::string& text) {
  volatile char copy[32] = {};
  for (size_t at = 0; at < text.size(); ++at) copy[at] = text[at];
}

TEST(RigOwnStackTest, ShowsTheContentLeftOnIt) {
  const std::string text = "left behind " + std::to_string(4711);
  rig::OwnStack stack;
  stack.Run([&] { Leave(text); });
  EXPECT_NE(stack.Content().find(text), std::string_view::npos);
}

TEST(RigOwnStackTest, IsANewOneEachTime) {
  const std::string text = "left behind " + std::to_string(4712);
  {
    rig::OwnStack stack;
    stack.Run([&] { Leave(text); });
  }
  Leave(text);
  bool isRun = false;
  rig::OwnStack stack;
  stack.Run([&] { isRun = true; });
  EXPECT_TRUE(isRun);
  EXPECT_EQ(stack.Content().find(text), std::string_view::npos);
}

TEST(RigOwnStackTest, RethrowsWhatTheWorkThrows) {
  rig::OwnStack stack;
  EXPECT_THROW(stack.Run([] { throw std::runtime_error("thrown"); }), std::runtime_error);
}

}  // namespace rig_own_stack_test
