// The wrappers of the process heap and the reference counting of counted objects.

#include "base/heap.h"

#include <gtest/gtest.h>

#include <cstring>

#include "rig/internals_test.h"

namespace heap_test {

HX_INTERNAL(HeapAllocZero);
HX_INTERNAL(HeapReAllocOrFree);
HX_INTERNAL(HeapFreeSafe);
HX_INTERNAL(RefRetain);
HX_INTERNAL(RefRelease);

using HeapTest = rig::InternalsTest;

bool IsZero(const void* block, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    if (static_cast<const char*>(block)[i]) return false;
  }
  return true;
}

TEST_F(HeapTest, FreshBlocksAreZero) {
  void* block = HeapAllocZero(1000);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(IsZero(block, 0, 1000));
  EXPECT_EQ(LiveBlocks(), 1u);
  HeapFreeSafe(block);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(HeapTest, FreeingNullDoesNothing) {
  HeapFreeSafe(nullptr);
}

TEST_F(HeapTest, ReallocatingNullAllocates) {
  void* block = HeapReAllocOrFree(nullptr, 64);
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(IsZero(block, 0, 64));
  HeapFreeSafe(block);
}

TEST_F(HeapTest, GrowingKeepsTheOldBytesAndZeroesTheNew) {
  char* block = static_cast<char*>(HeapAllocZero(10));
  memcpy(block, "0123456789", 10);
  block = static_cast<char*>(HeapReAllocOrFree(block, 5000));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(memcmp(block, "0123456789", 10), 0);
  EXPECT_TRUE(IsZero(block, 10, 5000));
  HeapFreeSafe(block);
}

TEST_F(HeapTest, AFailedGrowthFreesTheOldBlock) {
  void* block = HeapAllocZero(10);
  EXPECT_EQ(HeapReAllocOrFree(block, SIZE_MAX / 2), nullptr);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(HeapTest, AFailedAllocationIsNull) {
  EXPECT_EQ(HeapAllocZero(SIZE_MAX / 2), nullptr);
  EXPECT_EQ(HeapReAllocOrFree(nullptr, SIZE_MAX / 2), nullptr);
}

TEST_F(HeapTest, ReferencesAreCountedAndTheLastOneFrees) {
  Object* object = static_cast<Object*>(HeapAllocZero(sizeof(Object)));
  object->refCount = 1;
  object->ops.Retain = RefRetain.Get();
  object->ops.Release = RefRelease.Get();
  EXPECT_EQ(RefRetain(object), object);
  EXPECT_EQ(object->refCount, 2);
  RefRelease(object);
  EXPECT_EQ(object->refCount, 1);
  EXPECT_NE(object->ops.Release, nullptr);
  EXPECT_EQ(LiveBlocks(), 1u);
  RefRelease(object);
  EXPECT_EQ(LiveBlocks(), 0u);
}

TEST_F(HeapTest, NullObjectsAreIgnored) {
  EXPECT_EQ(RefRetain(nullptr), nullptr);
  RefRelease(nullptr);
}

TEST(ObjectHeaderTest, CodesReadAsWrittenInMemory) {
  EXPECT_EQ(FourCharCode("\\:*/"), 0x2F2A3A5Cu);
  DWORD code = FourCharCode("pntr");
  EXPECT_EQ(memcmp(&code, "pntr", 4), 0);
  EXPECT_EQ(FourCharCode("\xff\x80\x01\xfe"), 0xFE0180FFu);
}

TEST(ObjectHeaderTest, FieldsHaveTheirFixedOffsets) {
  EXPECT_EQ(offsetof(Object, refCount), 0u);
  EXPECT_EQ(offsetof(Object, typeTag), 4u);
  EXPECT_EQ(offsetof(Object, ops), 8u);
  EXPECT_EQ(sizeof(Object), 48u);
}

}  // namespace heap_test
