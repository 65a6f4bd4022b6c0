// The main function of every test program.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "rig/coverage.h"
#include "rig/facts.h"
#include "rig/failures.h"
#include "rig/marks.h"

void rig::OnFault(const std::string& text) {
  ADD_FAILURE() << text;
}

namespace {

// Writes what the tests of each suite ran.
class CoverageWriter : public testing::EmptyTestEventListener {
  void OnTestSuiteEnd(const testing::TestSuite& suite) override {
    if (rig::WriteCoverage(suite.name())) return;
    std::fputs("the counts of what ran could not be written to the folder of HX_COVERAGE\n", stderr);
    std::exit(1);
  }
};

// Names the test whose actions are counted next.
class TestNames : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& test) override {
    rig::MarkWrite(std::string("Test\thx\t") + test.test_suite_name() + "." + test.name());
  }
};

}  // namespace

int main(int argc, char** argv) {
  // Unbuffered: printed text must survive a crash of the program.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::setvbuf(stderr, nullptr, _IONBF, 0);
  rig::RecordFacts();
  rig::BeginCoverage();
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new CoverageWriter);
  if (rig::IsCounted()) testing::UnitTest::GetInstance()->listeners().Append(new TestNames);
  return RUN_ALL_TESTS();
}
