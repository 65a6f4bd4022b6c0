// The whole machine as an installation can change it, before and after each part of a product's life. Used by
// the tests of whole lives, tests/install/*_lives_test.cpp.
#pragma once

#include "install/agent_rig.h"

namespace install {

/// What there is on the machine at one moment: each file and folder of drive C: with its content, and its
/// access list where that is not the usual one (in the Windows folder, with size and time only); each value
/// and key of the registry that an installation can reach; each service's state; each product that the engine
/// knows.
///
/// Left out is what the engine keeps for itself (its cache and its keys) and what a machine changes without
/// anybody's doing. Accounts and the firewall's exceptions exist for one process only under the engine behind
/// these tests.
class MachineState {
 public:
  /// The machine as it is now.
  static MachineState Now();

  /// What is different since `before`, a line each, in the order of the names: "+ NAME" is new, "- NAME"
  /// gone, and
  /// "~ NAME" another than before. Folders and keys end in a backslash; of those that are gone the content is
  /// not listed. Behind the name of what is new or another stand " = " and its value, but not a file's
  /// content. Product codes read as the package's name: "{client}", "{client-newer}", "{server}" ...
  std::string Since(const MachineState& before) const;

 private:
  struct Entry {
    std::string value;  ///< what is compared
    std::string shown;  ///< what is shown of it, with " = " in front; empty where nothing is
  };
  class Collector;

  std::map<std::string, Entry> entries_;
};

/// Lines as one text, as MachineState::Since has them.
std::string Joined(const Texts& lines);

/// The key of a package in the list of installed programs, with a backslash at its end; `package` as
/// MachineState::Since names it.
std::string UninstallKey(const std::string& package);

/// Properties by their names, as they stand on a command line. A folder's backslash at the end is left out:
/// before the quotation mark it would take the mark's meaning away.
std::wstring CommandLine(const std::map<std::string, std::string>& properties);

/// A package's list of the properties that reach the installer's service: the names of `properties`, and
/// `others`.
std::string SecureList(const std::map<std::string, std::string>& properties, Texts others);

}  // namespace install
