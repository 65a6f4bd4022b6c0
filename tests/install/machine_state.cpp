#include "install/machine_state.h"

#include <algorithm>

#include "install/security_rig.h"

namespace install {

MachineState MachineState::Now() {
  machine::Names names;
  for (const Package* package : AllPackages()) {
    const std::wstring stem = package->path.substr(package->path.rfind(L'\\') + 1);
    names.emplace_back(package->productCode, "{" + FromWide(stem.substr(0, stem.rfind(L'.'))) + "}");
  }
  Note(Differs::kWholeMachine);
  MachineState state;
  state.state_ = machine::State::Now(names);
  return state;
}

std::string UninstallKey(const std::string& package) {
  return "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\" + package + "\\";
}

std::wstring CommandLine(const std::map<std::string, std::string>& properties) {
  std::string text;
  for (auto [name, value] : properties) {
    if (!value.empty() && value.back() == '\\') value.pop_back();
    text += " " + name + "=\"" + value + "\"";
  }
  return ToWide(text);
}

std::string SecureList(const std::map<std::string, std::string>& properties, Texts others) {
  for (const auto& [name, value] : properties) others.push_back(name);
  std::sort(others.begin(), others.end());
  std::string list;
  for (const std::string& name : others) list += (list.empty() ? "" : ";") + name;
  return list;
}

}  // namespace install
