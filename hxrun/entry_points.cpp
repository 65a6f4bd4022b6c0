#include "hxrun/entry_points.h"

#include <algorithm>

namespace hxrun {
namespace {

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

}  // namespace

const std::vector<EntryPoint>& EntryPoints() {
  static const std::vector<EntryPoint> entries = {
#include "entry_points.inc"
  };
  return entries;
}

const EntryPoint* FindEntryPoint(std::string_view name) {
  for (const EntryPoint& entry : EntryPoints()) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

bool IsPropertyRead(const std::string& name) {
  const std::vector<EntryPoint>& entries = EntryPoints();
  return std::any_of(entries.begin(), entries.end(), [&](const EntryPoint& entry) {
    return std::find(entry.reads.begin(), entry.reads.end(), name) != entry.reads.end();
  });
}

std::string EntryPointList() {
  std::string text;
  for (const EntryPoint& entry : EntryPoints()) {
    text += std::string(entry.name) + " (" + entry.phase + "): " + entry.job + "\n";
    if (!entry.reads.empty()) text += "    reads " + Joined(entry.reads) + "\n";
    if (!entry.sets.empty()) text += "    sets " + Joined(entry.sets) + "\n";
  }
  return text;
}

}  // namespace hxrun
