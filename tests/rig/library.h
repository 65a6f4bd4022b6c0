// Loads the library under test. Used by the rig and by whatever calls the library.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace rig {

/// One slot of a library's import address table.
struct Import {
  std::string module;     ///< As the image spells it, for example "KERNEL32.dll".
  std::string name;       ///< Empty when imported by ordinal.
  WORD ordinal = 0;       ///< 0 when imported by name.
  void** slot = nullptr;  ///< Holds the address that the library calls.
};

/// A freshly loaded copy of a library of the folder that HX_LIBRARY_DIR names: its process-wide caches are
/// empty. Unloaded on destruction; that it then really is gone is checked. One at a time.
class Library {
 public:
  /// Loads `file` ("hxsetup.dll"). Throws std::runtime_error when that fails.
  explicit Library(const std::string& file);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// The library that is loaded now, or null.
  static Library* Current();

  /// Calls `visit` for every slot of the import address table.
  void ForEachImport(const std::function<void(const Import&)>& visit) const;
  /// Makes the import slot point at `target`.
  static void Patch(const Import& import, const void* target);
  /// An exported function, or null.
  FARPROC Find(const char* name) const;
  /// Calls the library's entry as Windows does (`reason`: DLL_PROCESS_ATTACH ...); after patching, so that
  /// what it calls is seen. A crash fails the test.
  BOOL CallEntry(DWORD reason) const;
  /// Calls the exported entry point "CustomAction<number>" for the session. A missing export fails the test
  /// (result ~0), a crash fails it and throws LibraryCrash.
  UINT CustomAction(int number, unsigned long session) const;

  /// The module.
  HMODULE Handle() const { return handle_; }
  /// Counts the libraries loaded so far; what was found in one is void in the next.
  static unsigned Generation();
  /// The library's place in words ("hxsetup.dll+0x1234") when `code` lies in it, else empty.
  std::string Where(const void* code) const;

 private:
  HMODULE handle_ = nullptr;
  std::string file_;
};

}  // namespace rig
