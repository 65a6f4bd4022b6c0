// A made-up disk: drive C: with folders, files and links to folders, which the answers of the file functions
// show and change. Used by the answers and by the targets of paths, of the engine and of actions.
#pragma once

#include "data.h"

/// An entry of the disk.
struct Entry {
  std::u16string name;                           ///< its long name; of a root, its drive
  std::u16string shortName;                      ///< its short name, or empty
  Entry* parent = nullptr;                       ///< the folder that holds it; null for the root
  bool isFolder = false;                         ///< a folder, or a link to one
  bool isLink = false;                           ///< a link to a folder
  Entry* target = nullptr;                       ///< where a link leads; null for nowhere
  uint32_t content = 0;                          ///< the content of a file; a copy has the same
  std::vector<std::unique_ptr<Entry>> children;  ///< the contents of a folder
};

/// Sees each call that changes the disk, before it does: the path that it changes, and whether that is the
/// path from which something is moved away. A move is seen twice, with both paths.
using DiskWatcher = std::function<void(const std::u16string& path, bool isMoved)>;

/// Makes the disk empty, but for the folder that is the current one. Nothing watches it.
void ResetDisk();

/// Lets `watch` see the calls until the next reset.
void WatchDisk(DiskWatcher watch);

/// Makes folders, files and links from `data`, most of them in "C:\".
void ChooseDisk(Data* data);

/// Returns all entries of drive C:, each after its folder.
std::vector<Entry*> AllEntries();

/// Returns all entries of drive D:.
std::vector<Entry*> AwayEntries();

/// Returns a text that says everything about an entry: its path, kind and content.
std::string Described(const Entry& entry);

/// Takes a path from `data`: most often of an entry, sometimes of none.
std::u16string TakePath(Data* data);

/// True if a part of `path` before a backslash is a link. Backslashes before the place `from` do not count.
bool LeadsThroughLink(const std::u16string& path, size_t from = 0);

/// Returns the path of an entry.
std::u16string PathOf(const Entry& entry);

/// Returns the entry to which `path` leads, or null.
Entry* EntryAt(const std::u16string& path);

/// Returns the entries that the last name of `path`, which may be a pattern, means in its folder.
std::vector<Entry*> EntriesAt(const std::u16string& path);

/// Returns the folder that holds the last name of `path`, or null.
Entry* FolderAt(const std::u16string& path);

/// Returns the entry called `name` in a folder, or null.
Entry* ChildOf(Entry* folder, const std::u16string& name);

/// Returns where the contents of a folder or of a link are; null for a file and for a link to nowhere.
Entry* ContentsOf(Entry* entry);

/// True if the disk has refused a call because there were too many.
bool DiskIsWorn();
