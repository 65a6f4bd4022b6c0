// The rig's own tests: the record of what entry points do.

#include "rig/facts.h"

#include <msi.h>
#include <msiquery.h>

#include <cstdio>
#include <string>

#include "rig/guarded_heap.h"
#include "rig/internals_test.h"
#include "rig/print.h"

namespace rig_facts_test {

// The facts of one entry point in the file of this program.
std::string FactsOf(const std::string& entry) {
  char folder[MAX_PATH] = {};
  GetEnvironmentVariableA("HX_ARTIFACTS", folder, sizeof folder);
  std::string found, line;
  std::FILE* file = std::fopen((std::string(folder) + "\\facts.txt").c_str(), "rb");
  if (file == nullptr) return found;
  for (int unit = std::fgetc(file); unit != EOF; unit = std::fgetc(file)) {
    line += static_cast<char>(unit);
    if (unit == '\n') {
      if (line.rfind(entry + "\t", 0) == 0) found += line.substr(entry.size() + 1);
      line.clear();
    }
  }
  std::fclose(file);
  return found;
}

TEST(RigFactsTest, RecordsResultsAndMessagesOnce) {
  for (int times = 0; times < 2; ++times) {
    rig::ObservedCall call("hxsetup.dll", 901);
    rig::ObserveMessage(INSTALLMESSAGE_INFO, "Hx Setup Log: C:\\a\tb\nc", {"", "x"});
    rig::ObserveMessage(INSTALLMESSAGE_USER, "", {"", "25003"});
    call.Returned(1603);
  }
  EXPECT_EQ(FactsOf("CustomAction901"), "log\tHx Setup Log: C:\\\\a\\tb\\nc\nnotice\t25003\nreturns\t1603\n");
}

TEST(RigFactsTest, RecordsNothingOfOtherLibrariesAndOutsideOfEntryPoints) {
  {
    rig::ObservedCall call("rigsubject.dll", 902);
    rig::ObserveMessage(INSTALLMESSAGE_INFO, "Hx Setup Log: done", {});
    call.Returned(0);
  }
  rig::ObserveMessage(INSTALLMESSAGE_INFO, "Hx Setup Log: done", {});
  EXPECT_EQ(FactsOf("CustomAction902"), "");
  EXPECT_EQ(FactsOf("CustomAction0"), "");
}

class RigFactsOfCallsTest : public rig::RiggedInternalsTest {};

TEST_F(RigFactsOfCallsTest, TellsBuffersOfAFixedSizeFromThoseOnTheHeap) {
  const auto& read = *rig::declarations::Find("msi.dll", WORD{73});
  const auto& set = *rig::declarations::Find("msi.dll", WORD{145});
  char buffer[32];
  DWORD count = sizeof buffer;
  const char* fixedName = "PROP_FIXED";
  const char* grownName = "PROP_GROWN";
  const wchar_t* setName = L"PROP_SET";
  const uint64_t fixed[] = {1, rig::ToWord(fixedName), rig::ToWord(&buffer[0]), rig::ToWord(&count)};
  void* block = rig::GuardedHeap::Get().Allocate(64);
  const uint64_t grown[] = {1, rig::ToWord(grownName), rig::ToWord(block), rig::ToWord(&count)};
  const uint64_t value[] = {1, rig::ToWord(setName), 0};
  {
    rig::ObservedCall call("hxsetup.dll", 903);
    rig::ObserveCall(read, fixed);
    rig::ObserveCall(read, grown);
    rig::ObserveCall(set, value);
  }
  rig::ObserveCall(read, fixed);
  rig::GuardedHeap::Get().Free(block);
  EXPECT_EQ(FactsOf("CustomAction903"), "reads\tPROP_FIXED 32A\nreads\tPROP_GROWN\nsets\tPROP_SET\n");
}

}  // namespace rig_facts_test
