// The resources that the library acquired and has not freed yet. Used by the rig and the world.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "rig/declaration.h"

namespace rig {

/// The resources that the library holds. A resource is a kind and a value (an address, a handle). Taking the
/// same resource again increases its count.
class Ledger {
 public:
  /// Records that the library acquired a resource; `note` adds a detail ("24 bytes"), `taker` is the code
  /// that acquired it.
  void Take(const Kind& kind, uint64_t value, std::string note = {}, const void* taker = nullptr);
  /// Records that the library freed a resource. Fails the test and returns false if the library does not
  /// hold it.
  bool Give(const Kind& kind, uint64_t value, const std::string& by);
  /// True if the library holds the resource.
  bool Holds(const Kind& kind, uint64_t value) const;
  /// Returns how many resources of a kind the library holds.
  size_t Count(const Kind& kind) const;
  /// Returns the name of a held resource ("key#1"); empty if it is not held.
  std::string NameOf(const Kind& kind, uint64_t value) const;
  /// Does the same for a value of unknown kind; heap blocks have no such names.
  std::string NameOf(uint64_t value) const;
  /// Names a value, held or not; for example with the name of a module.
  void Call(uint64_t value, const std::string& name);

  /// Marks one resource of this kind as kept on purpose. `name` (a resource's name, such as a module's)
  /// restricts this to the resource with that name.
  void Deliberate(const Kind& kind, std::string name = {});
  /// Fails the test for everything still held that no call of `Deliberate` covers; with `all`, also for a
  /// call that matches nothing.
  void CheckEmpty(bool all);
  /// Returns the values of one kind that are held.
  std::vector<uint64_t> Values(const Kind& kind) const;
  /// Forgets what is held and every call of `Deliberate`.
  void Forget();

 private:
  /// A resource.
  struct Key {
    const Kind* kind;
    uint64_t value;
    bool operator==(const Key& other) const = default;
  };
  /// Hashes resources.
  struct Hash {
    /// Returns the hash of a resource.
    size_t operator()(const Key& key) const {
      return static_cast<size_t>(key.value * 0x9E3779B97F4A7C15ULL >> 7);
    }
  };
  /// Details of a held resource.
  struct Entry {
    unsigned number;
    int count;
    const void* taker;
    std::string note;
  };
  /// One call of `Deliberate`.
  struct Exception {
    const Kind* kind;
    std::string name;
  };

  /// Returns the name given to the value, or the kind with its number.
  std::string Name(const Key& key, const Entry& entry) const;

  std::unordered_map<Key, Entry, Hash> held_;
  std::map<const Kind*, unsigned> numbers_;
  std::map<const Kind*, size_t> counts_;
  std::map<uint64_t, std::string> names_;
  std::vector<Exception> deliberate_;
};

}  // namespace rig
