// Command lines of the copy/move engine on a made-up disk. A copy without "o" never changes what is there,
// with "l" nothing is changed behind a link, no content is lost but that of a target, and after a success the
// content of each source is at its target.

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

// What the command line says besides its paths.
struct Promises {
  // No letter moves or overwrites.
  bool keepsAll = true;
  // Links are not followed: the first element is "-l", no letter changes that, and no path leads through a
  // link.
  bool keepsLinks = false;
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
std::vector<std::u16string> TakeElements(Data* data, Promises* promises) {
  constexpr char16_t kLetters[] = u"mcokbierfnulgzxq";
  // Those of packages.
  constexpr const char16_t* kUsual[] = {u"mobl", u"ckrnil", u"el", u"mobinl", u"ml", u"r", u"mob", u"cor"};
  std::vector<std::u16string> elements;
  promises->keepsLinks = data->Flag();
  if (promises->keepsLinks) elements.emplace_back(u"-l");
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
      for (const char16_t letter : letters) {
        if (letter == u'm' || letter == u'o') promises->keepsAll = false;
        // A link that is moved can become a folder on the way of a later path.
        if (letter == u'g' || letter == u'z' || letter == u'm') promises->keepsLinks = false;
      }
      elements.push_back(u"-" + letters);
    }
    const std::u16string path = TakeQuotable(data);
    if (LeadsThroughLink(path)) promises->keepsLinks = false;
    // A path that begins with "-" is an option group.
    if (!path.empty() && path[0] == u'-') promises->keepsAll = promises->keepsLinks = false;
    elements.push_back(path);
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
  Promises promises;
  const std::vector<std::u16string> elements = TakeElements(data, &promises);
  const std::u16string line = Line(elements);
  const EngineModel model(elements);
  std::vector<std::string> before, awayBefore;
  if (promises.keepsAll) before = Describe(AllEntries());
  if (promises.keepsLinks) awayBefore = Describe(AwayEntries());
  const int status = callTreeCopyMove(GuardedWide(line));
  REQUIRE(std::find(std::begin(kAllowed), std::end(kAllowed), status) != std::end(kAllowed),
          "the engine returns %d", status);
  model.CheckNothingLost();
  if (status == kStatusOk && !HasFailed() && !DiskIsWorn()) model.CheckPlaced();
  if (promises.keepsLinks) {
    REQUIRE(Describe(AwayEntries()) == awayBefore, "%s: something behind a link changed",
            NarrowOf(line).c_str());
  }
  if (!promises.keepsAll) return;
  const std::vector<std::string> after = Describe(AllEntries());
  for (const std::string& entry : before) {
    REQUIRE(std::find(after.begin(), after.end(), entry) != after.end(),
            "%s: nothing is moved or overwritten, but this entry changed: %s", NarrowOf(line).c_str(),
            entry.c_str());
  }
}
