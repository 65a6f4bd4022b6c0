// The whole machine, as far as an installation can change it, before and after each part of a product's life.
// Used by the tests of whole lives, tests/install/*_lives_test.cpp.
#pragma once

#include "install/agent_rig.h"

namespace install {

/// The state of the machine at one moment: each file and folder of drive C: with its content, and with its
/// access list if that is unusual (in the Windows folder, only with size and time); each value and key of the
/// registry that an installation can reach; each service's state; each product that the engine knows.
///
/// Left out are the engine's own data (its cache and its keys) and whatever changes by itself. Accounts and
/// the firewall's exceptions are left out because the engine of these tests keeps them for one process only.
class MachineState {
 public:
  /// Returns the current state.
  static MachineState Now();

  /// Returns the changes since `before`, one per line, ordered by name: "+ NAME" is new, "- NAME" is gone, "~
  /// NAME" has changed. Folders and keys end in a backslash; the content of deleted ones is not listed. A new
  /// or changed name is followed by " = " and its value, except a file's content. Product codes read as the
  /// package's name: "{client}", "{client-newer}", "{server}" ...
  std::string Since(const MachineState& before) const;

 private:
  struct Entry {
    std::string value;  ///< what is compared
    std::string shown;  ///< the shown part, after " = "; empty if nothing is shown
  };
  class Collector;

  std::map<std::string, Entry> entries_;
};

/// Joins lines into one text, in the format of MachineState::Since.
std::string Joined(const Texts& lines);

/// Returns the key of a package in the list of installed programs, with a backslash at its end; `package` is
/// a name as in MachineState::Since.
std::string UninstallKey(const std::string& package);

/// Returns the properties as a command line. Omits a folder's backslash at the end, which would escape the
/// quotation mark.
std::wstring CommandLine(const std::map<std::string, std::string>& properties);

/// Returns a package's list of the properties that reach the installer's service: the names of `properties`,
/// and `others`.
std::string SecureList(const std::map<std::string, std::string>& properties, Texts others);

}  // namespace install
