// What a command line of the copy/move engine must and must not do to the made-up disk. Used by the target of
// the engine.
#pragma once

#include "disk.h"

/// The options of a source: what the letters before it say.
struct EngineOptions {
  bool moves = false;          ///< m
  bool overwrites = false;     ///< o
  bool keepsAside = false;     ///< b
  bool ignoresErrors = false;  ///< i
  bool recurses = false;       ///< r
  bool createsTarget = false;  ///< n
  bool keepsLinks = false;     ///< l

  /// Applies a letter; others than the engine's change nothing.
  void Apply(char16_t letter);
};

/// Compares the disk before and after a command line.
class EngineModel {
 public:
  /// Notes the disk before the command line, and reads its `elements`: option groups and sources, and last
  /// the target.
  explicit EngineModel(const std::vector<std::u16string>& elements);

  /// Fails if the content of a file is lost. Content may be lost only to the letter "o" without "b", and
  /// then, if there is only one source, only below its target. For any result, also with calls that failed.
  void CheckNothingLost() const;

  /// Fails if what the first source means is not at its target. For a command line that succeeded although no
  /// call failed.
  void CheckPlaced() const;

 private:
  // A copy of an entry as it was before.
  struct Shot {
    const Entry* entry = nullptr;
    std::u16string name;
    bool isFolder = false;
    uint32_t content = 0;
    std::vector<Shot> children;
  };
  // What the first source means: an entry and its target.
  struct Placed {
    Shot source;
    std::u16string target;
  };

  bool WasThere(const Entry* entry) const { return before_.count(entry) != 0; }
  void NotePlaces(const std::u16string& source, const std::u16string& target);
  void NoteLosses(Entry* entry);
  bool IsTouched(const Shot& shot) const;
  bool Take(Entry* entry, int depth, Shot* shot);
  void CheckCopy(const Shot& source, Entry* target, const std::u16string& path) const;

  std::set<const Entry*> before_;
  std::set<uint32_t> contents_;
  // The contents that may be lost, and the folders that have been looked at for them.
  std::set<uint32_t> losses_;
  std::set<const Entry*> seen_;
  EngineOptions first_;
  std::vector<Placed> placed_;
  size_t sources_ = 0;
  bool mayLoseAll_ = false;
  // False if only the engine can say what must be at the target.
  bool isForeseen_ = true;
};
