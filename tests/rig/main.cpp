// The main function of every test program.
#include <gtest/gtest.h>

#include <cstdio>

#include "rig/facts.h"
#include "rig/failures.h"

void rig::OnFault(const std::string& text) {
  ADD_FAILURE() << text;
}

int main(int argc, char** argv) {
  // Unbuffered: printed text must survive a crash of the program.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  rig::RecordFacts();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
