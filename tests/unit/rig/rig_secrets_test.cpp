// Hiding secrets, and searching what an action leaves in memory: a secret is found on its stack, and in the
// heap blocks that it freed or reallocated.

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

// A line is masked by each part of the rig that it passes.
TEST_F(RigTest, AMaskedTextStaysTheSame) {
  const auto mask = [](const std::string& text) {
    const std::string masked = rig::Secret::Masked(text);
    EXPECT_EQ(rig::Secret::Masked(masked), masked);
    return masked;
  };
  {
    const rig::Secret one("password");
    EXPECT_EQ(mask("my password, password"), "my <password>, <password>");
    EXPECT_EQ(mask("<password>"), "<password>");
    const rig::Secret two("<pass"), three("word>");
    EXPECT_EQ(mask("a <pass, a word> and passwords"), "a <password>, a <password> and <password>s");
  }
  {
    // A secret can have the mark in it.
    const rig::Secret one("<password>!"), two("x<password>");
    EXPECT_EQ(mask("<password>! x<password> <password>"), "<password> <password> <password>");
  }
  {
    // The longest one counts, in any order.
    const rig::Secret one("secret"), two("secret-1"), three("-1-");
    EXPECT_EQ(mask("secret-1-secret secret-1"), "<password>-<password> <password>");
  }
  {
    const rig::Secret one("e", rig::Secret::Where::kWholeValue);
    const rig::Secret two("<password>", rig::Secret::Where::kWholeValue);
    EXPECT_EQ(mask("the \"e\" and \"<password>\""), "the \"<password>\" and \"<password>\"");
  }
  EXPECT_EQ(mask("password"), "password");
}

}  // namespace rig_test
