// The owner types: they release what they hold, once, and nothing else.

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "base/com_owners.h"
#include "base/error_mode.h"
#include "base/windows_owners.h"
#include "frame/installer_record.h"

namespace owners_test {

std::vector<int> closed;

struct NumberTraits {
  using Value = int;
  static constexpr Value Empty() { return -1; }
  static void Close(Value value) { closed.push_back(value); }
};
using Number = Unique<NumberTraits>;
using Closed = std::vector<int>;

class UniqueTest : public testing::Test {
 protected:
  void SetUp() override { closed.clear(); }
};

TEST_F(UniqueTest, ReleasesWhatItHoldsAtTheEndOfItsScope) {
  {
    Number number(7);
    EXPECT_TRUE(static_cast<bool>(number));
    EXPECT_EQ(number.get(), 7);
    EXPECT_EQ(closed, Closed{});
  }
  EXPECT_EQ(closed, Closed{7});
}

TEST_F(UniqueTest, NeverReleasesTheEmptyValue) {
  {
    Number nothing;
    EXPECT_FALSE(static_cast<bool>(nothing));
    nothing.reset();
    Number empty(-1);
    EXPECT_FALSE(static_cast<bool>(empty));
  }
  EXPECT_EQ(closed, Closed{});
}

TEST_F(UniqueTest, ZeroIsAValueIfTheTraitsSaySo) {
  {
    Number zero(0);
  }
  EXPECT_EQ(closed, Closed{0});
}

TEST_F(UniqueTest, MovingTransfersTheResource) {
  {
    Number first(1);
    Number second(std::move(first));
    EXPECT_FALSE(static_cast<bool>(first));
    EXPECT_EQ(second.get(), 1);
    Number third(3);
    third = std::move(second);
    EXPECT_EQ(closed, Closed{3});
    Number& same = third;
    third = std::move(same);
    EXPECT_EQ(third.get(), 1);
    EXPECT_EQ(closed, Closed{3});
  }
  EXPECT_EQ(closed, (Closed{3, 1}));
}

TEST_F(UniqueTest, PutReleasesTheOldValueFirst) {
  Number number(1);
  *number.put() = 2;
  EXPECT_EQ(closed, Closed{1});
  EXPECT_EQ(number.get(), 2);
}

TEST_F(UniqueTest, AValueStoredByAFailingCallIsNotReleased) {
  {
    Number number(1);
    *number.put() = 2;
    EXPECT_TRUE(number.keep(true));
    EXPECT_EQ(number.get(), 2);
    *number.put() = 3;
    EXPECT_FALSE(number.keep(false));
    EXPECT_FALSE(static_cast<bool>(number));
  }
  EXPECT_EQ(closed, (Closed{1, 2}));
}

TEST_F(UniqueTest, ReleaseKeepsTheResourceAlive) {
  {
    Number number(5);
    EXPECT_EQ(number.release(), 5);
    EXPECT_FALSE(static_cast<bool>(number));
  }
  EXPECT_EQ(closed, Closed{});
}

TEST_F(UniqueTest, EachKindOfHandleHasItsEmptyValue) {
  EXPECT_FALSE(static_cast<bool>(SearchHandle(INVALID_HANDLE_VALUE)));
  EXPECT_FALSE(static_cast<bool>(FileHandle()));
  EXPECT_EQ(FileHandle().get(), INVALID_HANDLE_VALUE);
  EXPECT_EQ(ProcessHandle().get(), nullptr);
  EXPECT_EQ(InstallerRecord().get(), 0u);
}

struct CountedInterface : IUnknown {
  int references = 1;
  HRESULT STDMETHODCALLTYPE QueryInterface(const IID&, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
  ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }
};

TEST(ComPtrTest, ReleasesEachReferenceOnce) {
  CountedInterface a, b;
  {
    ComPtr<CountedInterface> pointer(&a);
    ComPtr<CountedInterface> moved(std::move(pointer));
    EXPECT_FALSE(static_cast<bool>(pointer));
    EXPECT_EQ(moved.get(), &a);
    *moved.put() = &b;
    EXPECT_EQ(a.references, 0);
    EXPECT_EQ(moved->references, 1);
  }
  EXPECT_EQ(b.references, 0);
}

TEST(ComPtrTest, AValueStoredByAFailingCallIsNotReleased) {
  CountedInterface object;
  {
    ComPtr<CountedInterface> pointer;
    *pointer.put() = &object;
    EXPECT_TRUE(pointer.keep(S_FALSE));
    EXPECT_EQ(pointer.get(), &object);
    // Neither null nor an object.
    *pointer.put() = reinterpret_cast<CountedInterface*>(uintptr_t{0xBADBAD0});
    EXPECT_FALSE(pointer.keep(E_FAIL));
    EXPECT_EQ(pointer.get(), nullptr);
  }
  EXPECT_EQ(object.references, 0);
}

TEST(ComPtrTest, ReleaseKeepsTheReference) {
  CountedInterface object;
  {
    ComPtr<CountedInterface> pointer(&object);
    EXPECT_EQ(pointer.release(), &object);
  }
  EXPECT_EQ(object.references, 1);
}

TEST(ComPtrTest, AssigningReleasesTheOldOne) {
  CountedInterface a, b;
  ComPtr<CountedInterface> left(&a), right(&b);
  left = std::move(right);
  EXPECT_EQ(a.references, 0);
  EXPECT_EQ(b.references, 1);
  EXPECT_EQ(left.get(), &b);
  EXPECT_EQ(left.putVoid(), reinterpret_cast<void**>(left.put()));
  EXPECT_EQ(b.references, 0);
}

TEST(ErrorModeGuardTest, SetsTheModeAndRestoresTheOldOne) {
  UINT before = SetErrorMode(SEM_NOGPFAULTERRORBOX);
  {
    ErrorModeGuard guard;
    EXPECT_EQ(GetErrorMode(), static_cast<UINT>(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX));
  }
  EXPECT_EQ(GetErrorMode(), static_cast<UINT>(SEM_NOGPFAULTERRORBOX));
  SetErrorMode(before);
}

}  // namespace owners_test
