#include "rig/ignore_case.h"

#include <windows.h>

#include "rig/print.h"

namespace rig {

bool IgnoreCase::operator()(const std::string& a, const std::string& b) const {
  return CompareStringOrdinal(ToWide(a).c_str(), -1, ToWide(b).c_str(), -1, TRUE) == CSTR_LESS_THAN;
}

}  // namespace rig
