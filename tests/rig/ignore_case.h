// Orders names without regard to case. Used by the parts of the world that find something by name.
#pragma once

#include <string>

namespace rig {

/// Orders names as the system compares them, ignoring case.
struct IgnoreCase {
  /// True if `a` comes before `b`; both are UTF-8.
  bool operator()(const std::string& a, const std::string& b) const;
};

}  // namespace rig
