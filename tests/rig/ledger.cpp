#include "rig/ledger.h"

#include <algorithm>

#include "rig/failures.h"
#include "rig/guarded_heap.h"
#include "rig/library.h"
#include "rig/print.h"

namespace rig {

std::string Ledger::Name(const Key& key, const Entry& entry) const {
  auto named = names_.find(key.value);
  return named == names_.end() ? std::string(key.kind->name) + "#" + std::to_string(entry.number)
                               : named->second;
}

void Ledger::Take(const Kind& kind, uint64_t value, std::string note, const void* taker) {
  Key key{&kind, value};
  ++counts_[&kind];
  auto found = held_.find(key);
  if (found != held_.end()) {
    ++found->second.count;
    return;
  }
  held_.emplace(key, Entry{++numbers_[&kind], 1, taker, std::move(note)});
}

bool Ledger::Give(const Kind& kind, uint64_t value, const std::string& by) {
  auto found = held_.find({&kind, value});
  if (found == held_.end()) {
    Fail(by + " releases a " + kind.name + " (" + HexText(value) + ") that the library does not hold");
    return false;
  }
  --counts_[&kind];
  if (--found->second.count == 0) {
    held_.erase(found);
  }
  return true;
}

bool Ledger::Holds(const Kind& kind, uint64_t value) const {
  return held_.count({&kind, value}) != 0;
}

size_t Ledger::Count(const Kind& kind) const {
  auto found = counts_.find(&kind);
  return found == counts_.end() ? 0 : found->second;
}

std::string Ledger::NameOf(const Kind& kind, uint64_t value) const {
  auto found = held_.find({&kind, value});
  return found == held_.end() ? std::string() : Name(found->first, found->second);
}

std::string Ledger::NameOf(uint64_t value) const {
  auto named = names_.find(value);
  if (named != names_.end()) {
    return named->second;
  }
  for (const auto& [kind, last] : numbers_) {
    auto found = kind == &kBlock ? held_.end() : held_.find({kind, value});
    if (found != held_.end()) {
      return Name(found->first, found->second);
    }
  }
  return {};
}

void Ledger::Call(uint64_t value, const std::string& name) {
  names_[value] = name;
}

void Ledger::Deliberate(const Kind& kind, std::string name) {
  deliberate_.push_back({&kind, std::move(name)});
}

void Ledger::CheckEmpty(bool all) {
  std::vector<std::pair<const Key*, const Entry*>> left;
  for (const auto& [key, entry] : held_) {
    for (int copy = 0; copy < entry.count; ++copy) {
      left.emplace_back(&key, &entry);
    }
  }
  // In the order of acquisition, so that failures always read the same.
  std::sort(left.begin(), left.end(), [](const auto& a, const auto& b) {
    return a.first->kind != b.first->kind ? std::string_view(a.first->kind->name) < b.first->kind->name
                                          : a.second->number < b.second->number;
  });
  std::vector<Exception> unused = deliberate_;
  for (const auto& [key, entry] : left) {
    std::string name = Name(*key, *entry);
    auto match = std::find_if(unused.begin(), unused.end(), [&, held = key](const Exception& one) {
      return one.kind == held->kind && (one.name.empty() || one.name == name);
    });
    if (match != unused.end()) {
      unused.erase(match);
      continue;
    }
    std::string text = name + " was not released";
    if (key->kind == &kBlock) {
      text +=
          " (" + std::to_string(GuardedHeap::Get().SizeOf(reinterpret_cast<void*>(key->value))) + " bytes)";
    } else if (!entry->note.empty()) {
      text += " (" + entry->note + ")";
    }
    std::string where = Library::Current() == nullptr ? "" : Library::Current()->Where(entry->taker);
    if (!where.empty()) {
      text += ", taken at " + where;
    }
    Fail(text);
  }
  if (all) {
    for (const Exception& one : unused) {
      Fail("the test names a " + std::string(one.kind->name) + (one.name.empty() ? "" : " " + one.name) +
           " that is kept on purpose, but none was kept");
    }
  }
}

std::vector<uint64_t> Ledger::Values(const Kind& kind) const {
  std::vector<uint64_t> values;
  for (const auto& [key, entry] : held_) {
    if (key.kind == &kind) {
      values.push_back(key.value);
    }
  }
  return values;
}

void Ledger::Forget() {
  held_.clear();
  counts_.clear();
  deliberate_.clear();
}

}  // namespace rig
