#include "hxrun/changes.h"

#include <algorithm>

namespace hxrun {
namespace {

bool HasHead(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

// True if `inner` lies inside of `outer`, as a path does in a folder.
bool LiesIn(const std::string& inner, const std::string& outer) {
  return inner.size() > outer.size() && HasHead(inner, outer) &&
         (outer.back() == '\\' || inner[outer.size()] == '\\');
}

// True if nothing lies between the two: `inner` is an entry of the folder `outer`.
bool IsEntryOf(const std::string& inner, const std::string& outer) {
  return LiesIn(inner, outer) && inner.find('\\', outer.size() + 1) == std::string::npos;
}

bool Makes(Way way) {
  return way == Way::kMade || way == Way::kMadeFolder || way == Way::kOther;
}

// Takes the word before a subject off; true if it was there.
bool TakeHead(std::string& subject, const std::string& head) {
  if (!HasHead(subject, head)) return false;
  subject.erase(0, head.size());
  return true;
}

}  // namespace

void Changes::Add(const std::vector<Touch>& touches, size_t change) {
  for (const Touch& touch : touches) touched_.push_back({touch, change});
}

size_t Changes::DependsOn(const Subjects& subjects) const {
  for (std::string subject : subjects) {
    const bool isMade = TakeHead(subject, "made:");
    const bool isList = TakeHead(subject, "list:");
    for (const Touched& touched : touched_) {
      const auto& [changed, way] = touched.touch;
      const bool isAbove = LiesIn(changed, subject);
      if (isMade) {
        if (isAbove && Makes(way)) return touched.change;
        continue;
      }
      const bool isSame = subject == changed;
      const bool isBelow = LiesIn(subject, changed) && way != Way::kMadeFolder;
      const bool isOfKind = HasHead(subject, "any:") && HasHead(changed, subject.substr(4));
      const bool isAnyOfKind = HasHead(changed, "any:") && HasHead(subject, changed.substr(4));
      if (isSame || isBelow || (isList && isAbove) || isOfKind || isAnyOfKind) return touched.change;
    }
  }
  return kNone;
}

FileState Changes::StateOf(const std::string& subject, size_t* change) const {
  // The last change counts.
  for (auto touched = touched_.rbegin(); touched != touched_.rend(); ++touched) {
    const auto& [changed, way] = touched->touch;
    *change = touched->change;
    if (HasHead(changed, "any:") && HasHead(subject, changed.substr(4))) return FileState::kUncertain;
    const bool isSame = subject == changed;
    if ((!isSame && !LiesIn(subject, changed)) || way == Way::kContent) continue;
    const FileState below = IsEntryOf(subject, changed) ? FileState::kMissing : FileState::kNoPath;
    switch (way) {
      case Way::kMade:
        return isSame ? FileState::kFile : FileState::kNoPath;
      case Way::kMadeFolder:
        return isSame ? FileState::kFolder : below;
      case Way::kGone:
        return isSame ? FileState::kMissing : FileState::kNoPath;
      default:
        return FileState::kUncertain;
    }
  }
  *change = kNone;
  return FileState::kAsIs;
}

bool Changes::IsInNewFolder(const Subjects& subjects, FileState* state) const {
  return std::any_of(subjects.begin(), subjects.end(), [&](const std::string& subject) {
    return std::any_of(touched_.begin(), touched_.end(), [&](const Touched& touched) {
      if (touched.touch.way != Way::kMadeFolder || !LiesIn(subject, touched.touch.subject)) return false;
      size_t change = kNone;
      *state = StateOf(subject, &change);
      return true;
    });
  });
}

Subjects Changes::MadeIn(const std::string& subject) const {
  Subjects made;
  for (const Touched& touched : touched_) {
    const std::string& changed = touched.touch.subject;
    const bool isInside = subject.back() == ':' ? HasHead(changed, subject) : LiesIn(changed, subject);
    if (isInside && Makes(touched.touch.way)) {
      made.push_back(changed);
    }
  }
  return made;
}

bool Changes::IsGone(const std::string& subject) const {
  for (auto touched = touched_.rbegin(); touched != touched_.rend(); ++touched) {
    if (touched->touch.subject == subject) return touched->touch.way == Way::kGone;
  }
  return false;
}

}  // namespace hxrun
