// The changes that a dry run has recorded, and what they make of the machine: which answers depend on them,
// and what is known of a file or folder after them. Used by the watcher of a run and by the table of effects.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace hxrun {

/// What a call touches. Each is a text that begins with its kind, such as "file:c:\temp\a" or
/// "service:ostrel"; it is in small letters. What follows a backslash lies inside. "list:" before a folder
/// means its entries, "made:" what was put into it, "any:" before a kind every subject of this kind.
using Subjects = std::vector<std::string>;

/// What a change does to a subject.
enum class Way : uint8_t {
  kContent,     ///< It exists before and after; what is in it changes.
  kMade,        ///< It exists afterwards, with nothing in it that is not made too.
  kMadeFolder,  ///< The same for a folder.
  kGone,        ///< It does not exist afterwards, nor does anything in it.
  kOther,       ///< Nobody can say what it is afterwards.
};

/// A subject and what a change does to it.
struct Touch {
  std::string subject;  ///< the subject
  Way way;              ///< what the change does to it
};

/// What is known of a file or folder after the recorded changes.
enum class FileState : uint8_t {
  kAsIs,       ///< No change touched it: ask the machine.
  kFile,       ///< It is a new file.
  kFolder,     ///< It is a new folder.
  kMissing,    ///< It does not exist, and the folder above it does.
  kNoPath,     ///< It does not exist, and neither does the folder above it.
  kUncertain,  ///< It depends on a change that was not made.
};

/// The recorded changes, in order.
class Changes {
 public:
  /// No change.
  static constexpr size_t kNone = static_cast<size_t>(-1);

  /// True if nothing was recorded.
  bool IsEmpty() const { return touched_.empty(); }
  /// Adds what the change with this number touches.
  void Add(const std::vector<Touch>& touches, size_t change);
  /// Returns the number of a change that the answer about one of these subjects depends on; kNone if there is
  /// none.
  size_t DependsOn(const Subjects& subjects) const;
  /// Returns what is known of a file after all changes. `subject` is a subject of files; `change` becomes the
  /// number of the change that decides, kNone for kAsIs.
  FileState StateOf(const std::string& subject, size_t* change) const;
  /// True if one of the subjects lies in a folder that a change would have created. `state` becomes what is
  /// known of it.
  bool IsInNewFolder(const Subjects& subjects, FileState* state) const;
  /// Returns all subjects inside this one, or of this kind ("task:"), that a change made or moved there.
  Subjects MadeIn(const std::string& subject) const;
  /// True if the last change of exactly this subject made it disappear.
  bool IsGone(const std::string& subject) const;

 private:
  struct Touched {
    Touch touch;
    size_t change;
  };
  std::vector<Touched> touched_;
};

}  // namespace hxrun
