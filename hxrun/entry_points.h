// What hxrun knows of each entry point: its phase and job, and the properties that it reads and sets. Used by
// --list and by the reading of properties.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace hxrun {

/// One entry point.
struct EntryPoint {
  const char* name;                ///< "CustomAction20"
  std::string phase;               ///< "immediate", "deferred", "immediate or deferred" ...
  std::string job;                 ///< what it does, in one sentence without a subject
  std::vector<std::string> reads;  ///< the properties that it reads
  std::vector<std::string> sets;   ///< the properties that it sets

  /// True if packages call it in the deferred phase only.
  bool IsOnlyDeferred() const { return phase == "deferred"; }
  /// True if packages can call it in the deferred phase.
  bool CanBeDeferred() const { return phase.find("deferred") != std::string::npos; }
  /// True if it has a job of its own in a rollback.
  bool CanRollBack() const { return phase.find("rollback") != std::string::npos; }
};

/// All entry points, by number. Made from tools/texts/entry_points.json and docs/actions.md.
const std::vector<EntryPoint>& EntryPoints();

/// Returns the entry point of this name, or null.
const EntryPoint* FindEntryPoint(std::string_view name);

/// True if some entry point reads the property.
bool IsPropertyRead(const std::string& name);

/// The text that --list prints.
std::string EntryPointList();

}  // namespace hxrun
