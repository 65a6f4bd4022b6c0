// Texts of more than 2 GB, whose length the system cannot take: on x64 only, because the emulator needs a
// minute to read them.
#if defined(__x86_64__)

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <vector>

#include "base/text.h"
#include "paths/path.h"
#include "rig/import_hook.h"
#include "rig/internals_test.h"

namespace huge_text_test {

HX_INTERNAL(PathMake);
HX_INTERNAL(Utf8ToWide);
HX_INTERNAL(WideToUtf8);

// A text of many gigabytes that needs little memory: the same piece of memory again and again, and after it a
// page of zeros.
class HugeText {
 public:
  // Makes room for `bytes` bytes before the zeros.
  explicit HugeText(size_t bytes) : pieces_((bytes + kPiece - 1) / kPiece) {
    section_ = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kPiece, nullptr);
    const size_t whole = pieces_ * kPiece + kZeros;
    void* free = VirtualAlloc(nullptr, whole, MEM_RESERVE, PAGE_NOACCESS);
    VirtualFree(free, 0, MEM_RELEASE);
    begin_ = static_cast<char*>(free);
    for (size_t i = 0; i < pieces_; ++i) {
      isMade_ = MapViewOfFileEx(section_, FILE_MAP_WRITE, 0, 0, kPiece, begin_ + i * kPiece) && isMade_;
    }
    isMade_ = VirtualAlloc(End(), kZeros, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE) && isMade_;
    if (isMade_) memset(begin_, 'x', kPiece);
  }
  ~HugeText() {
    for (size_t i = 0; i < pieces_; ++i) UnmapViewOfFile(begin_ + i * kPiece);
    VirtualFree(End(), 0, MEM_RELEASE);
    CloseHandle(section_);
  }
  HugeText(const HugeText&) = delete;
  HugeText& operator=(const HugeText&) = delete;

  // False if the system did not give the memory.
  bool IsMade() const { return isMade_; }
  // Returns a text of `length` units.
  template <class Unit>
  const Unit* Of(size_t length) const {
    return reinterpret_cast<const Unit*>(End()) - length;
  }

 private:
  static constexpr size_t kPiece = 16 << 20;
  static constexpr size_t kZeros = 64 << 10;

  char* End() const { return begin_ + pieces_ * kPiece; }

  size_t pieces_;
  HANDLE section_;
  char* begin_;
  bool isMade_ = true;
};

// A text that is too long is refused before memory is asked for. Memory is refused to the others.
class HugeTextTest : public rig::InternalsTest {
 protected:
  // Returns the sizes of the blocks that `work` asks for.
  template <class Work>
  static std::vector<SIZE_T> Asked(Work work) {
    std::vector<SIZE_T> sizes;
    HX_HOOK(heap, HeapAlloc, [&](HANDLE process, DWORD flags, SIZE_T size) -> LPVOID {
      sizes.push_back(size);
      return size > INT_MAX ? nullptr : heap.Next(process, flags, size);
    });
    EXPECT_EQ(work(), nullptr);
    return sizes;
  }
};

TEST_F(HugeTextTest, APathHasAtMost16BytesLessThan2GB) {
  constexpr size_t kMost = INT_MAX - 16;
  const HugeText text(kMost + 1);
  ASSERT_TRUE(text.IsMade());
  EXPECT_EQ(Asked([&] { return PathMake(nullptr, text.Of<char>(kMost), -1); }),
            (std::vector<SIZE_T>{sizeof(PathObject), kMost + 2}));
  EXPECT_EQ(Asked([&] { return PathMake(nullptr, text.Of<char>(kMost + 1), -1); }), std::vector<SIZE_T>{});
}

TEST_F(HugeTextTest, AConversionTakesLessThan2GUnits) {
  constexpr size_t kMost = INT_MAX;
  const HugeText text((kMost + 1) * sizeof(wchar_t));
  ASSERT_TRUE(text.IsMade());
  EXPECT_EQ(Asked([&] { return Utf8ToWide(text.Of<char>(kMost), -1); }),
            std::vector<SIZE_T>{(kMost + 2) * 4 + 512});
  EXPECT_EQ(Asked([&] { return Utf8ToWide(text.Of<char>(kMost + 1), -1); }), std::vector<SIZE_T>{});
  EXPECT_EQ(Asked([&] { return WideToUtf8(text.Of<wchar_t>(kMost), -1, nullptr); }),
            std::vector<SIZE_T>{(kMost + 2) * 6 + 256});
  EXPECT_EQ(Asked([&] { return WideToUtf8(text.Of<wchar_t>(kMost + 1), -1, nullptr); }),
            std::vector<SIZE_T>{});
}

}  // namespace huge_text_test

#endif
