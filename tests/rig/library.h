// Loads the library under test. Used by the rig and by everything that calls the library.
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

/// A freshly loaded copy of a library in the folder that HX_LIBRARY_DIR names; its process-wide caches are
/// empty. The destructor unloads it and checks that it is really gone. One at a time.
class Library {
 public:
  /// Loads `file` ("hxsetup.dll"). Throws std::runtime_error on failure.
  explicit Library(const std::string& file);
  /// Loads `file` from `folder`, which has no backslash at its end.
  Library(const std::string& file, const std::wstring& folder);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// Returns the library that is loaded now, or null.
  static Library* Current();

  /// Calls `visit` for every slot of the import address table.
  void ForEachImport(const std::function<void(const Import&)>& visit) const;
  /// Points the import slot to `target`.
  static void Patch(const Import& import, const void* target);
  /// Returns an exported function, or null.
  FARPROC Find(const char* name) const;
  /// Calls the library's entry function as Windows does (`reason`: DLL_PROCESS_ATTACH ...). This happens
  /// after patching, so that its calls are seen. A crash fails the test.
  BOOL CallEntry(DWORD reason) const;
  /// Calls the exported entry point "CustomAction<number>" for the session. A missing export fails the test
  /// and returns ~0. A crash fails the test and throws LibraryCrash.
  UINT CustomAction(int number, unsigned long session) const;

  /// Calls `visit` with each library before it is unloaded; null for nobody.
  static void BeforeUnloading(void (*visit)(const Library&));

  /// Returns the module handle.
  HMODULE Handle() const { return handle_; }
  /// Returns the name of its file, for example "hxsetup.dll".
  const std::string& File() const { return file_; }
  /// Returns the number of constants that end before an unreadable page; 0 unless the library was linked for
  /// that.
  size_t GuardedConstants() const { return guardedConstants_; }
  /// Returns the number of libraries loaded so far. An address found in one library is invalid in the next.
  static unsigned Generation();
  /// Returns the place of `code` in the library as text ("hxsetup.dll+0x1234"); empty if it lies elsewhere.
  std::string Where(const void* code) const;

 private:
  HMODULE handle_ = nullptr;
  size_t guardedConstants_ = 0;
  std::string file_;
};

}  // namespace rig
