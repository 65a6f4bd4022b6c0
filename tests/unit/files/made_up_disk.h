// A disk that a test makes up. Used by the tests of paths that are spelled as on the disk.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "rig/import_hook.h"

namespace path_test {

/// The paths of look-ups, in order.
using Lookups = std::vector<std::wstring>;

/// The error mode that suppresses message boxes of Windows.
constexpr UINT kQuietErrors = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

/// Answers FindFirstFileW from a list. Checks that each search is closed once, and is made under the error
/// mode that suppresses message boxes, which is restored afterwards.
class MadeUpDisk {
 public:
  struct Entry {
    std::wstring name, alternate;
  };

  MadeUpDisk() = default;
  ~MadeUpDisk() {
    EXPECT_EQ(open_, 0);
    EXPECT_EQ(mode_, kOwnMode);
  }

  std::map<std::wstring, Entry> entries;
  Lookups lookups;
  // How often the mode was set.
  int modeChanges = 0;

 private:
  static constexpr UINT kOwnMode = SEM_NOGPFAULTERRORBOX;
  const HANDLE search_ = reinterpret_cast<HANDLE>(0x4710);
  UINT mode_ = kOwnMode;
  int open_ = 0;
  rig::ImportHook<&::SetErrorMode> setMode_{"SetErrorMode", [this](UINT mode) {
                                              ++modeChanges;
                                              return std::exchange(mode_, mode);
                                            }};
  rig::ImportHook<&::FindFirstFileW> find_{
      "FindFirstFileW", [this](LPCWSTR path, LPWIN32_FIND_DATAW found) -> HANDLE {
        EXPECT_EQ(mode_, kQuietErrors);
        EXPECT_EQ(open_, 0);
        lookups.push_back(path);
        auto entry = entries.find(path);
        if (entry == entries.end()) return INVALID_HANDLE_VALUE;
        memset(found, 0xCD, sizeof *found);
        wcscpy(found->cFileName, entry->second.name.c_str());
        wcscpy(found->cAlternateFileName, entry->second.alternate.c_str());
        ++open_;
        return search_;
      }};
  rig::ImportHook<&::FindClose> close_{"FindClose", [this](HANDLE search) {
                                         EXPECT_EQ(search, search_);
                                         --open_;
                                         return TRUE;
                                       }};
};

}  // namespace path_test
