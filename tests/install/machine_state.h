// The whole machine, as far as an installation can change it, before and after each part of a product's life.
// Used by the tests of whole lives, tests/install/*_lives_test.cpp.
#pragma once

#include "install/agent_rig.h"
#include "machine/state.h"

namespace install {

/// The state of the machine at one moment. Product codes read as the package's name: "{client}",
/// "{client-newer}", "{server}" ...
class MachineState {
 public:
  /// Returns the current state.
  static MachineState Now();

  /// Returns the changes since `before`, one per line, as machine::State::Since lists them.
  std::string Since(const MachineState& before) const { return Joined(state_.Since(before.state_)); }

 private:
  machine::State state_;
};

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
