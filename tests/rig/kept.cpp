#include "rig/kept.h"

#include <algorithm>

namespace rig {
namespace {

// True if a line of the trace begins with `start`. A call that a sweep makes fail has more text after its
// result.
bool HasLine(const Rig& rig, const std::string& start) {
  const std::vector<std::string>& lines = rig.trace.Lines();
  return std::any_of(lines.begin(), lines.end(),
                     [&](const std::string& line) { return line.rfind(start, 0) == 0; });
}

}  // namespace

void KeepModules(Rig& rig, std::initializer_list<const char*> modules) {
  for (const std::string module : modules) {
    if (HasLine(rig, "LoadLibraryW(\"" + module + "\") = " + module)) {
      rig.ledger.Deliberate(kModule, module);
    }
  }
}

void KeepWithout(Rig& rig, const std::string& module, const std::string& function, const Kind& kind) {
  if (HasLine(rig, "GetProcAddress(" + module + ", \"" + function + "\") = null")) {
    for (size_t count = rig.ledger.Count(kind); count > 0; --count) {
      rig.ledger.Deliberate(kind);
    }
  }
}

}  // namespace rig
