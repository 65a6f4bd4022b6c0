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

  /// True if no source is moved or overwrites something.
  bool KeepsAll() const { return keepsAll_; }

  /// Fails if a change of `path`, which is about to happen, is not one of this command line. Something is
  /// moved away from `path` if `isMoved` is true. Changes may be in the folders of the targets, and of
  /// sources that are moved. With "l" for all sources, no part of the path may be a link, except in front of
  /// the name of a source or of a target.
  void CheckChange(const std::u16string& path, bool isMoved) const;

  /// Fails if the content of a file is lost. Content may be lost only to the letter "o" without "b". It must
  /// have been below the target of a source with "o", or, before a source that deletes, in what another one
  /// has moved. For any result, also with calls that failed.
  void CheckNothingLost() const;

  /// Fails if what the first source means is not at its target. For a command line that succeeded although no
  /// call failed.
  void CheckPlaced() const;

 private:
  // A source with the options before it.
  struct Source {
    std::u16string path;
    EngineOptions options;

    // True if an existing target is deleted.
    bool Deletes() const { return options.overwrites && !options.keepsAside; }
  };
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
  void NoteLosses(Entry* entry, bool keepsLinks);
  void NoteAllLosses();
  void NoteFolders();
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
  std::u16string target_;
  std::vector<Source> sources_;
  bool keepsAll_ = true;
  bool keepsLinks_ = true;
  // How the paths of targets begin, and those of sources that are moved: up to the backslash before the name.
  std::vector<std::u16string> targetFolders_, movedFolders_;
  // False if only the engine can say what must be at the target.
  bool isForeseen_ = true;
};
