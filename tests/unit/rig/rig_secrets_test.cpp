// Searching what an action leaves in memory: a secret is found on its stack, and in the heap blocks that it
// freed or reallocated.

#include "rig/secrets.h"

#include <string>
#include <vector>

#include "unit/rig/rig_subject.h"

namespace rig_test {

// Returns a finder of the text, which reports at most once per piece of memory.
rig::SecretFinder Finder(const std::string& text) {
  return [text](std::string_view memory) {
    return memory.find(text) == std::string_view::npos ? std::string()
                                                       : "found " + std::to_string(text.size());
  };
}

using Texts = std::vector<std::string>;

TEST_F(RigTest, ASecretOnTheStackIsFound) {
  // The function writes the numbers from 1 upwards to a buffer on the stack.
  const std::string secret("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C", 12);
  auto overrun = SubjectOverrunStack.Get();
  rig::FailureCapture capture;
  EXPECT_EQ(rig::RunAndSearch([&] { return overrun(12) == 1 ? 0u : 1u; }, Finder(secret)), 0u);
  EXPECT_EQ(capture.Texts(), Texts{"on the stack: found 12"});
}

TEST_F(RigTest, ASecretInABlockThatGrowsAndInOneThatIsFreedIsFound) {
  // The function writes the letter at the start of both of its blocks; the rest is rubbish.
  const std::string secret = std::string("x") + static_cast<char>(rig::GuardedHeap::kRubbish);
  auto grow = SubjectGrow.Get();
  rig::FailureCapture capture;
  EXPECT_EQ(rig::RunAndSearch(
                [&] {
                  unsigned char bytes[9];
                  grow(0, bytes);
                  for (volatile unsigned char& byte : bytes) byte = 0;
                  return 0u;
                },
                [&](std::string_view memory) {
                  return memory.size() < 10 ? Finder(secret)(memory) : std::string();
                }),
            2u);
  EXPECT_EQ(capture.Texts(),
            (Texts{"in a heap block that was freed: found 2", "in a heap block that was freed: found 2"}));
}

TEST_F(RigTest, NothingIsFoundWithoutASecret) {
  rig::FailureCapture capture;
  EXPECT_EQ(rig::RunAndSearch([] { return 0u; }, Finder("a text that nobody writes")), 0u);
  EXPECT_EQ(capture.Texts(), Texts());
}

TEST_F(RigTest, AnActionThatFailsIsReported) {
  rig::FailureCapture capture;
  rig::RunAndSearch([] { return 1603u; }, Finder("a text that nobody writes"));
  EXPECT_EQ(capture.Texts(), Texts{"the action returned 1603"});
}

}  // namespace rig_test
