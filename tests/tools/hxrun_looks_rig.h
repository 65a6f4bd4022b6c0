// A dry run in which a test makes the calls of the library itself, and objects that stand for those of
// Windows. Used by the tests of the looks.
#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "hxrun/com_objects.h"
#include "hxrun/run.h"
#include "rig/com.h"
#include "rig/function.h"
#include "rig/print.h"
#include "rig/rig.h"
#include "tools/hxrun_rig.h"

namespace hxrun_test {

/// Texts in order.
using Texts = std::vector<std::string>;

/// How a dry run ended before its action did.
struct Ended {
  hxrun::ExitStatus status;  ///< the exit status
  std::string text;          ///< the reason
};

/// The folder of these tests, with a backslash at its end.
inline const std::wstring kPlace = L"C:\\hxrun-looks\\";

/// Returns the path of a name in that folder.
inline std::wstring In(const wchar_t* name) {
  return kPlace + name;
}

/// A dry run. The folder has A\f.txt, B\sub\g.txt and fixed.txt, which is read-only.
class HxRunLooksTest : public testing::Test {
 protected:
  void SetUp() override {
    DeleteFolder(L"C:\\hxrun-looks");
    WriteBytes(kPlace + L"A\\f.txt", "one");
    WriteBytes(kPlace + L"B\\sub\\g.txt", "two");
    WriteBytes(kPlace + L"fixed.txt", "three");
    SetFileAttributesW((kPlace + L"fixed.txt").c_str(), FILE_ATTRIBUTE_READONLY);
    Begin();
  }
  void TearDown() override {
    rig_->watcher = nullptr;
    SetFileAttributesW((kPlace + L"fixed.txt").c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFolder(L"C:\\hxrun-looks");
  }

  /// Begins another dry run.
  void Begin() {
    listed_ = 0;
    rig_.reset();
    rig_ = std::make_unique<rig::Rig>(rig::Policy::kReal);
    rig_->spoils = false;
    watcher_ = std::make_unique<hxrun::RunWatcher>(
        hxrun::ChangeRule::kRecord, std::function<void(const std::string&)>(), nullptr,
        [](hxrun::ExitStatus status, const std::string& text) { throw Ended{status, text}; });
    hxrun::PassObjects(*rig_, *watcher_);
    rig_->watcher = watcher_.get();
  }

  /// Calls a function as the library does.
  template <auto Fn, class... Arguments>
  static auto Call(Arguments... arguments) {
    using Type = decltype(Fn);
    auto* thunk = const_cast<void*>(rig::Function<Fn>::GetDeclaration().Thunk());
    SetLastError(0);
    return reinterpret_cast<Type>(thunk)(arguments...);
  }

  /// Returns the changes that were listed since the last call of this, each with its error.
  Texts Listed() {
    Texts texts;
    const auto& changes = watcher_->Recorded();
    for (; listed_ < changes.size(); ++listed_) {
      texts.push_back((changes[listed_].fails ? "fails: " : "") + changes[listed_].text);
    }
    return texts;
  }

  /// Makes a call that must end the run, and returns how it says so.
  template <class Action>
  static std::string EndOf(Action action) {
    try {
      action();
    } catch (const Ended& ended) {
      EXPECT_EQ(ended.status, hxrun::kExitDependent);
      return ended.text;
    }
    return "the run went on";
  }

  /// Expects that the call failed with this last error, and that the list says so.
  void ExpectFailure(BOOL result, DWORD error, const std::string& change) {
    const DWORD left = GetLastError();
    EXPECT_FALSE(result) << change;
    EXPECT_EQ(left, error) << change;
    EXPECT_EQ(Listed(), Texts{"fails: " + change + " (error " + std::to_string(error) + ")"});
  }
  /// Expects that the call succeeded, and that the list has it.
  void ExpectChange(BOOL result, const std::string& change) {
    EXPECT_TRUE(result) << change;
    EXPECT_EQ(Listed(), Texts{change});
  }

  std::unique_ptr<rig::Rig> rig_;
  std::unique_ptr<hxrun::RunWatcher> watcher_;
  size_t listed_ = 0;
};

/// A text for a method of COM.
class Text {
 public:
  /// Makes a copy of `text`.
  explicit Text(const wchar_t* text) : text_(SysAllocString(text)) {}
  ~Text() { SysFreeString(text_); }
  Text(const Text&) = delete;
  Text& operator=(const Text&) = delete;
  /// Returns the text.
  operator BSTR() const { return text_; }

 private:
  BSTR text_;
};

/// A made-up object in place of one of Windows, with the methods that a test gives it. All others return
/// E_NOTIMPL.
class RawObject {
 public:
  RawObject() { slots_.fill(reinterpret_cast<const void*>(&Missing)); }
  RawObject(const RawObject&) = delete;
  RawObject& operator=(const RawObject&) = delete;
  /// Gives the object a method: a function with the object before the arguments.
  template <auto Member, class Answer>
  void Set(Answer* answer) {
    slots_[rig::MethodThunk<Member>::Slot()] = reinterpret_cast<const void*>(answer);
  }
  /// Returns the object as a pointer to its interface.
  void* Pointer() { return &table_; }

 private:
  static HRESULT Missing(void*) { return E_NOTIMPL; }

  std::array<const void*, 64> slots_;
  const void* const* table_ = slots_.data();
};

}  // namespace hxrun_test
