// Command lines of the copy/move engine on a made-up disk. Changes are only in the folders of targets and of
// sources that are moved, with "l" not in what a link leads to, a copy without "o" changes nothing that was
// there, no content is lost but that of a target, and after a success the first source is at its target.

#include "disk.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"
#include "targets/engine_model.h"
#include "world.h"

#include "files/tree_copy.h"

namespace {

OPERATION(TreeCopyMove);

constexpr int kAllowed[] = {
    kStatusOk,         kStatusNotFound, kStatusMissingArgument, kStatusNoMemory,
    kTreeTargetExists, kTreeNotRenamed, kTreeNotDeleted,        kTreeNotMoved,
    kTreeNotCopied,    kTreeNoSource,   kTreeSourceIsFolder,    kTreeFolderNotCreated,
};

// Takes a path that can be between quotation marks.
std::u16string TakeQuotable(Data* data) {
  std::u16string path = TakePath(data);
  path.erase(std::remove(path.begin(), path.end(), u'"'), path.end());
  // A backslash before the quotation mark at the end would hide it.
  if (!path.empty() && path.back() == u'\\') path.push_back(u'.');
  return path;
}

// Takes the elements of a command line after the first one.
std::vector<std::u16string> TakeElements(Data* data) {
  constexpr char16_t kLetters[] = u"mcokbierfnulgzxq";
  // Those of packages.
  constexpr const char16_t* kUsual[] = {u"mobl", u"ckrnil", u"el", u"mobinl", u"ml", u"r", u"mob", u"cor"};
  std::vector<std::u16string> elements;
  if (data->Flag()) elements.emplace_back(u"-l");
  for (uint32_t count = 1 + data->Below(4); count; --count) {
    const uint8_t kind = data->Byte();
    if (kind & 1) {
      std::u16string letters;
      if (kind & 2) {
        letters = data->OneOf(kUsual);
      } else {
        for (uint32_t left = data->Below(6); left; --left) {
          letters.push_back(kLetters[data->Below(std::size(kLetters) - 1)]);
        }
      }
      elements.push_back(u"-" + letters);
    }
    elements.push_back(TakeQuotable(data));
  }
  return elements;
}

std::u16string Line(const std::vector<std::u16string>& elements) {
  std::u16string line = u"hx";
  for (const std::u16string& element : elements) line += u" \"" + element + u"\"";
  return line;
}

std::vector<std::string> Describe(const std::vector<Entry*>& entries) {
  std::vector<std::string> described;
  described.reserve(entries.size());
  for (const Entry* entry : entries) described.push_back(Described(*entry));
  return described;
}

}  // namespace

void RunEngine(Data* data) {
  TakeFailure(data);
  ChooseClock(data);
  ChooseDisk(data);
  const std::vector<std::u16string> elements = TakeElements(data);
  const std::u16string line = Line(elements);
  const EngineModel model(elements);
  std::vector<std::string> before;
  if (model.KeepsAll()) before = Describe(AllEntries());
  WatchDisk([&](const std::u16string& path, bool isMoved) { model.CheckChange(path, isMoved); });
  const int status = callTreeCopyMove(GuardedWide(line));
  WatchDisk(nullptr);
  REQUIRE(std::find(std::begin(kAllowed), std::end(kAllowed), status) != std::end(kAllowed),
          "the engine returns %d", status);
  if (model.KeepsAll()) {
    const std::vector<std::string> after = Describe(AllEntries());
    for (const std::string& entry : before) {
      REQUIRE(std::find(after.begin(), after.end(), entry) != after.end(),
              "although nothing is moved or overwritten, this entry changed: %s, by %s", entry.c_str(),
              NarrowOf(line).c_str());
    }
  }
  model.CheckNothingLost();
  if (status == kStatusOk && !HasFailed() && !DiskIsWorn()) model.CheckPlaced();
}
