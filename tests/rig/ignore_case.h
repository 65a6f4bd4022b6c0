// An order of names that ignores case. Used by the parts of the world that find something by its name.
#pragma once

#include <string>

namespace rig {

/// Orders names as the system compares them: without regard to case.
struct IgnoreCase {
  /// Whether `a` comes before `b`; both are UTF-8.
  bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace rig
