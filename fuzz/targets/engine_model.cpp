#include "targets/engine_model.h"

#include "require.h"
#include "world.h"

namespace {

// Deeper trees are those of links that lead to a folder above them.
constexpr int kDeepest = 20;

// A path without the dots at its end, and then without one backslash.
std::u16string Trimmed(std::u16string path) {
  while (!path.empty() && path.back() == u'.') path.pop_back();
  if (!path.empty() && path.back() == u'\\') path.pop_back();
  return path;
}

bool IsPattern(const std::u16string& path) {
  return path.find_first_of(u"*?") != std::u16string::npos;
}

std::u16string WithLeaf(const std::u16string& path, const std::u16string& leaf) {
  return path.substr(0, path.rfind(u'\\') + 1) + leaf;
}

std::set<uint32_t> AllContents() {
  std::set<uint32_t> contents;
  for (const auto& entries : {AllEntries(), AwayEntries()}) {
    for (const Entry* entry : entries) {
      if (!entry->isFolder) contents.insert(entry->content);
    }
  }
  return contents;
}

}  // namespace

void EngineOptions::Apply(char16_t letter) {
  switch (letter) {
    case u'm':
    case u'c':
      moves = letter == u'm';
      break;
    case u'o':
    case u'k':
      overwrites = letter == u'o';
      break;
    case u'b':
      keepsAside = true;
      break;
    case u'i':
    case u'e':
      ignoresErrors = letter == u'i';
      break;
    case u'r':
    case u'f':
      recurses = letter == u'r';
      break;
    case u'n':
    case u'u':
      createsTarget = letter == u'n';
      break;
    case u'l':
    case u'g':
      keepsLinks = letter == u'l';
      break;
    case u'z':
      *this = {};
      break;
    default:
      break;
  }
}

EngineModel::EngineModel(const std::vector<std::u16string>& elements) {
  for (const auto& entries : {AllEntries(), AwayEntries()}) before_.insert(entries.begin(), entries.end());
  contents_ = AllContents();
  target_ = elements.back();
  std::replace(target_.begin(), target_.end(), u'/', u'\\');
  EngineOptions options;
  for (size_t i = 0; i + 1 < elements.size(); ++i) {
    std::u16string element = elements[i];
    if (!element.empty() && element[0] == u'-') {
      for (char16_t letter : element.substr(1)) options.Apply(letter);
      continue;
    }
    std::replace(element.begin(), element.end(), u'/', u'\\');
    keepsAll_ = keepsAll_ && !options.moves && !options.overwrites;
    keepsLinks_ = keepsLinks_ && options.keepsLinks;
    sources_.push_back({element, options});
  }
  if (sources_.empty()) {
    isForeseen_ = false;
    return;
  }
  first_ = sources_[0].options;
  NotePlaces(sources_[0].path, target_);
  // A later source can change what the first one has placed.
  isForeseen_ = isForeseen_ && !first_.ignoresErrors && (sources_.size() == 1 || keepsAll_);
  NoteAllLosses();
  NoteFolders();
}

// Notes the contents below an entry that is deleted, also those to which links in it lead, unless they are
// kept.
void EngineModel::NoteLosses(Entry* entry, bool keepsLinks) {
  if (!entry || !seen_.insert(entry).second) return;
  if (!entry->isFolder) losses_.insert(entry->content);
  if (entry->isLink && keepsLinks) return;
  Entry* folder = ContentsOf(entry);
  if (!folder) return;
  for (const auto& child : folder->children) NoteLosses(child.get(), keepsLinks);
}

// Notes the contents that may be lost to any source.
void EngineModel::NoteAllLosses() {
  size_t count = sources_.size();
  while (count && !sources_[count - 1].Deletes()) --count;
  for (size_t i = 0; i < count; ++i) {
    const Source& source = sources_[i];
    const bool isPattern = IsPattern(source.path);
    if (source.options.overwrites) {
      // What is renamed aside can be the source that is moved next.
      NoteLosses(isPattern ? FolderAt(WithLeaf(target_, u"x")) : EntryAt(Trimmed(target_)),
                 source.options.keepsLinks && source.Deletes());
      seen_.clear();
    }
    // What was moved is at the target when the next source, or the next match of a pattern, is placed there.
    if (!source.options.moves || (i + 1 == count && !isPattern)) continue;
    std::vector<Entry*> moved{EntryAt(Trimmed(source.path))};
    if (isPattern) moved = EntriesAt(source.path);
    // A source can have a path through a link that was moved before.
    for (Entry* entry : moved) NoteLosses(entry, false);
    seen_.clear();
  }
}

// Notes the folders of the targets and of the sources that are moved, as the paths have them.
void EngineModel::NoteFolders() {
  for (const Source& source : sources_) {
    targetFolders_.push_back(WithLeaf(Trimmed(target_), u""));
    // The target folder itself can be created, too.
    if (IsPattern(source.path)) targetFolders_.push_back(WithLeaf(target_, u""));
    if (!source.options.moves) continue;
    movedFolders_.push_back(WithLeaf(IsPattern(source.path) ? source.path : Trimmed(source.path), u""));
  }
}

// True if an entry of `shot` is noted as lost.
bool EngineModel::IsTouched(const Shot& shot) const {
  return seen_.count(shot.entry) || std::any_of(shot.children.begin(), shot.children.end(),
                                                [&](const Shot& each) { return IsTouched(each); });
}

// Copies an entry to `shot`. Returns false if it has no end.
bool EngineModel::Take(Entry* entry, int depth, Shot* shot) {
  if (depth > kDeepest) return false;
  *shot = {entry, entry->name, entry->isFolder, entry->content, {}};
  Entry* folder = ContentsOf(entry);
  if (!folder) return true;
  for (const auto& child : folder->children) {
    shot->children.emplace_back();
    if (!Take(child.get(), depth + 1, &shot->children.back())) return false;
  }
  return true;
}

void EngineModel::NotePlaces(const std::u16string& source, const std::u16string& target) {
  // Windows takes a target with "*" or "?" for whatever it means.
  if (IsPattern(target)) {
    isForeseen_ = false;
    return;
  }
  std::vector<std::pair<Entry*, std::u16string>> pairs;
  if (IsPattern(source)) {
    for (Entry* entry : EntriesAt(source)) pairs.emplace_back(entry, WithLeaf(target, entry->name));
  } else {
    pairs.emplace_back(EntryAt(Trimmed(source)), Trimmed(target));
  }
  for (const auto& [entry, path] : pairs) {
    Placed placed;
    placed.target = path;
    // An empty name, and one that ends with a backslash, are never found.
    isForeseen_ = isForeseen_ && !path.empty() && path.back() != u'\\';
    // A link that is moved to where it leads cannot be reached by that path any more.
    isForeseen_ = isForeseen_ && !(first_.moves && LeadsThroughLink(path));
    if (entry) isForeseen_ = isForeseen_ && Take(entry, 0, &placed.source);
    if (first_.overwrites) NoteLosses(EntryAt(path), first_.keepsLinks);
    placed_.push_back(std::move(placed));
  }
  // What gives way to a source can be a part of one, or hold a target.
  for (const Placed& each : placed_) {
    isForeseen_ = isForeseen_ && !IsTouched(each.source) && !seen_.count(FolderAt(each.target));
  }
  seen_.clear();
  losses_.clear();
}

void EngineModel::CheckChange(const std::u16string& path, bool isMoved) const {
  bool isNamed = false;
  auto isOwn = [&](const std::u16string& folder) {
    if (path.compare(0, folder.size(), folder) != 0) return false;
    isNamed = true;
    return !keepsLinks_ || !LeadsThroughLink(path, folder.size());
  };
  if (std::any_of(targetFolders_.begin(), targetFolders_.end(), isOwn)) return;
  if (isMoved && std::any_of(movedFolders_.begin(), movedFolders_.end(), isOwn)) return;
  REQUIRE(isNamed, "something changes that the line does not name: %s", NarrowOf(path).c_str());
  Fail("something changes to which a link leads: %s", NarrowOf(path).c_str());
}

void EngineModel::CheckNothingLost() const {
  const std::set<uint32_t> after = AllContents();
  for (uint32_t content : contents_) {
    REQUIRE(after.count(content) || losses_.count(content), "the content %u is lost", content);
  }
}

void EngineModel::CheckCopy(const Shot& source, Entry* target, const std::u16string& path) const {
  REQUIRE(target, "%s is not at its target %s", NarrowOf(source.name).c_str(), NarrowOf(path).c_str());
  // What was there is kept, and a folder gets what it does not have.
  const bool isKept = WasThere(target) && !first_.overwrites;
  if (!source.isFolder) {
    const bool isCopy = !target->isFolder && target->content == source.content;
    REQUIRE(isKept || isCopy, "%s is not the copy of %s", NarrowOf(path).c_str(),
            NarrowOf(source.name).c_str());
    return;
  }
  if (isKept && (!target->isFolder || !first_.recurses)) return;
  Entry* folder = ContentsOf(target);
  REQUIRE(folder, "%s, the copy of a folder, is none", NarrowOf(path).c_str());
  for (const Shot& child : source.children) {
    CheckCopy(child, ChildOf(folder, child.name), path + u"\\" + child.name);
  }
}

void EngineModel::CheckPlaced() const {
  if (!isForeseen_) return;
  for (const Placed& placed : placed_) {
    Entry* target = EntryAt(placed.target);
    if (first_.moves) {
      REQUIRE(target && target == placed.source.entry, "what is moved is not at its target %s",
              NarrowOf(placed.target).c_str());
      continue;
    }
    // A target that was there before can be kept without a look at the source.
    const bool isKept = target && WasThere(target) && !first_.overwrites;
    if (!placed.source.entry && (isKept || first_.createsTarget)) continue;
    REQUIRE(placed.source.entry, "a source that is missing is copied to %s", NarrowOf(placed.target).c_str());
    // With "n" the target is made as a folder before the source is looked at, and then kept.
    const bool isMerged = placed.source.isFolder && first_.recurses;
    if (first_.createsTarget && !first_.overwrites && !isMerged && target && target->isFolder) continue;
    CheckCopy(placed.source, target, placed.target);
  }
}
