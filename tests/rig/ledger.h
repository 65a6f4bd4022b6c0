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

/// The resources that the library holds. A resource is a kind and a value (an address, a handle); taking the
/// same one again counts up.
class Ledger {
 public:
  /// Notes that the library acquired a resource; `note` says more ("24 bytes"), `taker` is the code that took
  /// it.
  void Take(const Kind& kind, uint64_t value, std::string note = {}, const void* taker = nullptr);
  /// Notes that the library freed a resource. If it does not hold it, fails the test and returns false.
  bool Give(const Kind& kind, uint64_t value, const std::string& by);
  /// True if the library holds it.
  bool Holds(const Kind& kind, uint64_t value) const;
  /// How many of a kind the library holds.
  size_t Count(const Kind& kind) const;
  /// The name of a resource that is held ("key#1"), or empty.
  std::string NameOf(const Kind& kind, uint64_t value) const;
  /// The same for a value of unknown kind; heap blocks have no such names.
  std::string NameOf(uint64_t value) const;
  /// Gives a value a name of its own, held or not, for example that of a module.
  void Call(uint64_t value, const std::string& name);

  /// Says that the action keeps one resource of this kind on purpose; `name` (a resource's name, such as that
  /// of a module) narrows it to that one.
  void Deliberate(const Kind& kind, std::string name = {});
  /// Fails the test for everything still held that no Deliberate names; with `all` also for a Deliberate that
  /// matches nothing.
  void CheckEmpty(bool all);
  /// The values of one kind that are held.
  std::vector<uint64_t> Values(const Kind& kind) const;
  /// Forgets what is held and what Deliberate named.
  void Forget();

 private:
  /// A resource.
  struct Key {
    const Kind* kind;
    uint64_t value;
    bool operator==(const Key& other) const = default;
  };
  /// Spreads resources over a hash table.
  struct Hash {
    /// The hash of one.
    size_t operator()(const Key& key) const {
      return static_cast<size_t>(key.value * 0x9E3779B97F4A7C15ULL >> 7);
    }
  };
  /// What is known of a resource that is held.
  struct Entry {
    unsigned number;
    int count;
    const void* taker;
    std::string note;
  };
  /// What a Deliberate said.
  struct Exception {
    const Kind* kind;
    std::string name;
  };

  /// The name given to the value, or the kind with its number.
  std::string Name(const Key& key, const Entry& entry) const;

  std::unordered_map<Key, Entry, Hash> held_;
  std::map<const Kind*, unsigned> numbers_;
  std::map<const Kind*, size_t> counts_;
  std::map<uint64_t, std::string> names_;
  std::vector<Exception> deliberate_;
};

}  // namespace rig
