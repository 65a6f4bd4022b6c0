// The rig's own tests: guarded heap, guarded buffers, crashes, and blocks that are not freed.
#include <cstring>

#include "unit/rig/rig_subject.h"

namespace rig_test {

using rig::GuardedBuffer;
using rig::GuardedHeap;

TEST_F(RigTest, ALeakedBlockIsFound) {
  SubjectLeak(24);
  EXPECT_EQ(LiveBlocks(), 1U);
  std::string text = EndOfAction();
  EXPECT_TRUE(Has(text, "block#1 was not released (24 bytes)"));
}

TEST_F(RigTest, ABlockKeptOnPurposeIsNoLeak) {
  TheRig().ledger.Deliberate(rig::kBlock);
  SubjectLeak(24);
  EXPECT_EQ(EndOfAction(), "");
}

TEST_F(RigTest, OnlyOneBlockIsKeptOnPurpose) {
  TheRig().ledger.Deliberate(rig::kBlock);
  SubjectLeak(24);
  SubjectLeak(25);
  EXPECT_TRUE(Has(EndOfAction(), "block#2 was not released"));
}

TEST_F(RigTest, ABlockNamedAsKeptMustBeKept) {
  TheRig().ledger.Deliberate(rig::kBlock);
  EXPECT_TRUE(Has(EndOfAction(), "none was kept"));
}

TEST_F(RigTest, WritingPastABlockIsCaught) {
  EXPECT_TRUE(Has(Reported([] { SubjectWriteAt(16, 16); }), "0 bytes past the end of a block of 16 bytes"));
  EXPECT_TRUE(Has(EndOfAction(), "block#1"));
}

TEST_F(RigTest, TheCrashReportSaysWhere) {
  std::string text = Reported([] { SubjectWriteAt(16, 17); });
  EXPECT_TRUE(Has(text, "crash at rigsubject.dll+0x"));
  EXPECT_TRUE(Has(text, "1 byte past the end of a block of 16 bytes"));
  EndOfAction();
}

TEST_F(RigTest, WritingIntoTheSlackIsFoundWhenTheBlockIsFreed) {
  EXPECT_TRUE(
      Has(Reported([] { SubjectWriteAt(13, 13); }), "the bytes around a heap block were overwritten"));
}

TEST_F(RigTest, WritingBeforeABlockIsFound) {
  EXPECT_TRUE(
      Has(Reported([] { SubjectWriteAt(13, -1); }), "the bytes around a heap block were overwritten"));
}

TEST_F(RigTest, ReadingPastABlockIsCaught) {
  EXPECT_TRUE(Has(Reported([] { SubjectReadAt(4096, 4096, FALSE); }),
                  "0 bytes past the end of a block of 4096 bytes"));
  EndOfAction();
}

TEST_F(RigTest, UsingAFreedBlockIsCaught) {
  EXPECT_TRUE(
      Has(Reported([] { SubjectReadAt(100, 3, TRUE); }), "at offset 3 of a freed block of 100 bytes"));
}

TEST_F(RigTest, AFreshBlockHoldsRubbish) {
  EXPECT_EQ(SubjectReadAt(100, 0, FALSE), GuardedHeap::kRubbish);
  EXPECT_EQ(SubjectReadAt(100, 99, FALSE), GuardedHeap::kRubbish);
}

TEST_F(RigTest, GrowingKeepsTheStartAndFillsTheRest) {
  unsigned char bytes[9];
  SubjectGrow(0, bytes);
  EXPECT_EQ(bytes[0], 'x');
  EXPECT_EQ(bytes[8], GuardedHeap::kRubbish);
  SubjectGrow(HEAP_ZERO_MEMORY, bytes);
  EXPECT_EQ(0, std::memcmp(bytes, "x\0\0\0\0\0\0\0\0", sizeof bytes));
}

TEST_F(RigTest, ADoubleFreeIsFound) {
  EXPECT_TRUE(Has(Reported([] { SubjectFreeTwice(); }), "HeapFree releases a block"));
}

TEST_F(RigTest, FreeingAnAddressThatIsNotABlockIsFound) {
  EXPECT_TRUE(Has(Reported([] { SubjectFreeForeign(); }), "HeapFree releases a block"));
}

TEST_F(RigTest, ManyBlocksAreFast) {
  constexpr int kRounds = 100000;
  for (int round = 0; round < kRounds; ++round) {
    SubjectReadAt(static_cast<size_t>(round % 5000 + 1), 0, FALSE);
  }
  EXPECT_EQ(LiveBlocks(), 0U);
}

TEST_F(RigTest, ANullPointerIsACrash) {
  EXPECT_TRUE(Has(Reported([] { SubjectReadNull(); }), " 0x0 (outside the guarded heap)"));
}

TEST_F(RigTest, ATrapIsACrash) {
  EXPECT_TRUE(Has(Reported([] { SubjectTrap(); }), "trap instruction"));
}

TEST_F(RigTest, AnEndlessRecursionIsACrash) {
  EXPECT_EQ(SubjectRecurse(10), 55);
  // Each time: the guard of the stack is there again.
  for (int time = 0; time < 3; ++time) {
    EXPECT_TRUE(Has(Reported([] { SubjectRecurse(1 << 30); }), ": the stack is used up"));
  }
  EXPECT_EQ(SubjectRecurse(10), 55);
}

TEST_F(RigTest, ACrashEndsTheTest) {
  rig::FailureCapture capture;
  EXPECT_THROW(SubjectReadNull(), rig::LibraryCrash);
}

TEST_F(RigTest, AnExceptionOfTheTestPassesThroughAWatchedCall) {
  TheRig().On<::GetTickCount>([]() -> DWORD { throw std::runtime_error("from the answer"); });
  EXPECT_THROW(SubjectTicks(), std::runtime_error);
  EXPECT_TRUE(Has(Reported([] { SubjectReadNull(); }), " 0x0 (outside the guarded heap)"));
}

TEST_F(RigTest, AGuardedBufferEndsWhereItSays) {
  GuardedBuffer buffer(5);
  EXPECT_EQ(static_cast<unsigned char>(buffer.Data()[4]), GuardedHeap::kRubbish);
  auto* end = buffer.As<const unsigned char>() + buffer.Size();
  SubjectPeek(end - 1);
  EXPECT_TRUE(Has(Reported([&] { SubjectPeek(end); }), "0 bytes past the end of a block of 5 bytes"));
}

TEST_F(RigTest, AGuardedCopyHoldsItsText) {
  GuardedBuffer text = GuardedBuffer::Of("abc");
  EXPECT_EQ(text.Size(), 4U);
  EXPECT_STREQ(text.Data(), "abc");
  GuardedBuffer bare = GuardedBuffer::Of(std::wstring_view(L"ab"), false);
  EXPECT_EQ(bare.Size(), 4U);
  EXPECT_EQ(bare.As<wchar_t>()[1], L'b');
}

TEST_F(RigTest, WritingBeforeAGuardedBufferIsFound) {
  EXPECT_TRUE(Has(Reported([] {
                    GuardedBuffer buffer(8);
                    buffer.As<volatile char>()[-1] = 1;
                  }),
                  "the bytes before a buffer of 8 bytes were overwritten"));
}

TEST_F(RigRealTest, TheHeapIsGuardedHereToo) {
  EXPECT_EQ(SubjectReadAt(16, 0, FALSE), GuardedHeap::kRubbish);
  void* block = SubjectLeak(7);
  EXPECT_EQ(LiveBlocks(), 1U);
  EXPECT_EQ(GuardedHeap::Get().SizeOf(block), 7);
  SubjectFree(block);
  EXPECT_EQ(LiveBlocks(), 0U);
}

}  // namespace rig_test
