// The memory primitives to which the compiler itself generates calls.

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "rig/guarded_buffer.h"
#include "rig/internals_test.h"

namespace memory_test {

HX_INTERNAL(memcpy);
HX_INTERNAL(memmove);
HX_INTERNAL(memset);
HX_INTERNAL(memcmp);

using MemoryTest = rig::InternalsTest;
using rig::GuardedBuffer;

constexpr size_t kLargest = 40;

std::vector<char> Pattern(size_t size) {
  std::vector<char> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + 1);
  return bytes;
}

TEST_F(MemoryTest, CopyWritesEachSizeAndNoByteMore) {
  std::vector<char> pattern = Pattern(kLargest);
  for (size_t size = 0; size <= kLargest; ++size) {
    GuardedBuffer source(size), target(size);
    std::memcpy(source.Data(), pattern.data(), size);
    EXPECT_EQ(memcpy(target.Data(), source.Data(), size), target.Data());
    EXPECT_EQ(std::memcmp(target.Data(), pattern.data(), size), 0) << size;
  }
}

TEST_F(MemoryTest, MoveCopesWithEveryOverlap) {
  for (size_t size = 0; size <= kLargest; ++size) {
    for (size_t from = 0; from <= 2 * kLargest; ++from) {
      std::vector<char> real = Pattern(3 * kLargest), expected = real;
      std::memmove(expected.data() + kLargest, expected.data() + from, size);
      EXPECT_EQ(memmove(real.data() + kLargest, real.data() + from, size), real.data() + kLargest);
      ASSERT_EQ(real, expected) << size << " bytes from " << from;
    }
  }
}

TEST_F(MemoryTest, SetFillsEachSizeAndNoByteMore) {
  for (size_t size = 0; size <= kLargest; ++size) {
    GuardedBuffer target(size);
    EXPECT_EQ(memset(target.Data(), 0x1A5, size), target.Data());
    for (size_t i = 0; i < size; ++i)
      ASSERT_EQ(target.Data()[i], static_cast<char>(0xA5)) << i << " of " << size;
  }
}

TEST_F(MemoryTest, CompareTakesBytesAsUnsignedAndTheFirstDifference) {
  EXPECT_EQ(memcmp("", "", 0), 0);
  EXPECT_EQ(memcmp("a", "b", 0), 0);
  EXPECT_EQ(memcmp("same", "same", 4), 0);
  EXPECT_LT(memcmp("sama", "same", 4), 0);
  EXPECT_GT(memcmp("same", "sama", 4), 0);
  EXPECT_EQ(memcmp("same1", "same2", 4), 0);
  EXPECT_GT(memcmp("\x80", "\x7f", 1), 0);
  EXPECT_LT(memcmp("\x01\xff", "\xff\x01", 2), 0);
  for (size_t size = 1; size <= kLargest; ++size) {
    GuardedBuffer a(size), b(size);
    a.Fill(1);
    b.Fill(1);
    EXPECT_EQ(memcmp(a.Data(), b.Data(), size), 0);
    b.Data()[size - 1] = 2;
    EXPECT_LT(memcmp(a.Data(), b.Data(), size), 0);
  }
}

}  // namespace memory_test
