// The main function of every test program.
#include <gtest/gtest.h>

#include <cstdio>

#include "rig/coverage.h"
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
  rig::BeginCoverage();
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  if (!rig::WriteCoverage()) {
    std::fputs("the counts of what ran could not be written to the folder of HX_COVERAGE\n", stderr);
    return 1;
  }
  return result;
}
