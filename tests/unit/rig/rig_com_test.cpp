// The rig's own tests: COM objects.
#include <objidl.h>

#include <algorithm>

#include "rig/com.h"
#include "unit/rig/rig_subject.h"

namespace rig_test {

constexpr CLSID kClass = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0xC0, 0xDE}};

class RigComTest : public RigTest {
 protected:
  static void Populate(rig::World& world) {
    auto& stream = world.com.Make<IStream>("stream");
    stream
        .On<&IStream::Write>([](const void*, ULONG size, ULONG*) { return size == 4 ? S_OK : E_INVALIDARG; })
        .CountedBytes(rig::Arg<0>, rig::Arg<1>);
    stream.AlsoIs<ISequentialStream>();
    world.com.Register(kClass, stream);
  }
  void Arrange(rig::World& world) override { Populate(world); }

  std::vector<std::string> MethodLines() {
    std::vector<std::string> lines;
    for (const std::string& line : TheRig().trace.Lines()) {
      if (line.rfind("stream.", 0) == 0) {
        lines.push_back(line);
      }
    }
    return lines;
  }
};

TEST_F(RigComTest, AnObjectIsCreatedUsedAndReleased) {
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
  EXPECT_EQ(MethodLines(), (std::vector<std::string>{
                               "stream.Write(\"data\", 4, null) = 0",
                               "stream.QueryInterface({0C733A30-2A1C-11CE-ADE5-00AA0044773D}, *) = 0",
                           }));
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigComTest, AnObjectThatIsNotReleasedIsFound) {
  SubjectCom(kSubjectComKeepsObject);
  EXPECT_TRUE(Has(EndOfAction(), "stream was not released"));
}

TEST_F(RigComTest, AnObjectReleasedTwiceIsFound) {
  EXPECT_TRUE(Has(Reported([] { SubjectCom(kSubjectComReleasesTwice); }),
                  "stream.Release is called, but the library holds no reference"));
}

// A failing call leaves neither null nor an object, so that using its output is found.
TEST_F(RigComTest, AnObjectOfAFailedCreationIsFound) {
  TheWorld().On<::CoCreateInstance>(
      [](const CLSID&, IUnknown*, DWORD, const IID&, void**) { return E_ACCESSDENIED; });
  EXPECT_TRUE(
      Has(Reported([] { SubjectCom(kSubjectComUsesLeftover); }), " 0xbadbad0 (outside the guarded heap)"));
  TheRig().ledger.Forget();
}

TEST_F(RigComTest, ReleasesAreShownOnRequest) {
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
  TheRig().trace.Clear();
  TheWorld().com.ShowReleases();
  TheRig().MakeLoud("SysFreeString");
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
  std::vector<std::string> shown;
  for (const std::string& line : TheRig().trace.Lines()) {
    if (line.rfind("stream.", 0) == 0 || line.rfind("SysFreeString", 0) == 0) shown.push_back(line);
  }
  EXPECT_EQ(shown, (std::vector<std::string>{
                       "stream.Write(\"data\", 4, null) = 0",
                       "stream.QueryInterface({0C733A30-2A1C-11CE-ADE5-00AA0044773D}, *) = 0",
                       "stream.Release() = 1",
                       "stream.Release() = 0",
                       "SysFreeString(string#2)",
                   }));
}

TEST_F(RigComTest, AMissingUninitialiseIsFound) {
  SubjectCom(kSubjectComKeepsStart);
  EXPECT_TRUE(Has(EndOfAction(), "com-start#1 was not released"));
}

TEST_F(RigComTest, AKeptSystemStringIsFound) {
  SubjectCom(kSubjectComKeepsString);
  EXPECT_TRUE(Has(EndOfAction(), "string#1 was not released"));
}

TEST_F(RigComTest, AMethodThatTheTestDidNotImplementFails) {
  EXPECT_TRUE(Has(Reported([] { EXPECT_EQ(SubjectCom(kSubjectComCallsOther), E_NOTIMPL); }),
                  "the method in slot 9 of stream is called"));
}

TEST_F(RigComTest, UninitialisingWithoutStartIsFound) {
  TheWorld().com.start = S_FALSE;
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
  TheWorld().com.start = RPC_E_CHANGED_MODE;
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
  TheWorld().On<::CoInitializeEx>([](void*, DWORD) { return S_OK; });
  EXPECT_TRUE(Has(Reported([] { SubjectCom(kSubjectComSound); }), "CoUninitialize releases a com-start"));
}

TEST_F(RigComTest, EveryMethodFailsOnce) {
  std::vector<std::string> failed;
  rig::SweepOptions options;
  options.check = [&](const rig::SweepRun& run) { failed.push_back(run.name); };
  FailEachCall(
      [](rig::Scene&) {
        SubjectCom(kSubjectComSound);
        return 0U;
      },
      {}, options);
  EXPECT_NE(std::find(failed.begin(), failed.end(), "CoCreateInstance"), failed.end());
  EXPECT_NE(std::find(failed.begin(), failed.end(), "stream.Write"), failed.end());
  EXPECT_NE(std::find(failed.begin(), failed.end(), "stream.QueryInterface"), failed.end());
  EXPECT_NE(std::find(failed.begin(), failed.end(), "SysAllocString"), failed.end());
}

TEST_F(RigTest, AClassThatNobodyRegisteredFails) {
  EXPECT_TRUE(Has(Reported([] { EXPECT_EQ(SubjectCom(kSubjectComSound), REGDB_E_CLASSNOTREG); }),
                  "CoCreateInstance of the class {00000000-0000-0000-0000-00000000C0DE}"));
  TheWorld().com.Missing(kClass, E_ACCESSDENIED);
  EXPECT_EQ(SubjectCom(kSubjectComSound), E_ACCESSDENIED);
}

TEST_F(RigComTest, TheLastRegistrationOfAClassWins) {
  TheWorld().com.Missing(kClass, E_ACCESSDENIED);
  EXPECT_EQ(SubjectCom(kSubjectComSound), E_ACCESSDENIED);
  Populate(TheWorld());
  EXPECT_EQ(SubjectCom(kSubjectComSound), S_OK);
}

TEST_F(RigTest, GivenMemoryMustBeFreed) {
  TheWorld().heap.Give(rig::kLocalMemory, 16);
  TheWorld().com.GiveString(L"text");
  std::string text = EndOfAction();
  EXPECT_TRUE(Has(text, "local-memory#1 was not released"));
  EXPECT_TRUE(Has(text, "string#1 was not released"));
}

}  // namespace rig_test
