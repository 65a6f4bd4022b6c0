// Command lines of the copy/move engine on a made-up disk. A copy without "o" never changes what is there,
// and with "l" nothing is changed behind a link.

#include "disk.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "targets/conditions.h"
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

std::u16string Quoted(std::u16string path) {
  path.erase(std::remove(path.begin(), path.end(), u'"'), path.end());
  // A backslash before the quotation mark at the end would hide it.
  if (!path.empty() && path.back() == u'\\') path.push_back(u'.');
  return u"\"" + path + u"\"";
}

std::u16string MakeLine(Data* data, Promises* promises) {
  constexpr char16_t kLetters[] = u"mcokbierfnulgzxq";
  std::u16string line = u"hx";
  promises->keepsLinks = data->Flag();
  if (promises->keepsLinks) line += u" -l";
  for (uint32_t count = 1 + data->Below(4); count; --count) {
    if (data->Flag()) {
      line += u" -";
      for (uint32_t letters = data->Below(6); letters; --letters) {
        const char16_t letter = kLetters[data->Below(std::size(kLetters) - 1)];
        line.push_back(letter);
        if (letter == u'm' || letter == u'o') promises->keepsAll = false;
        // A link that is moved can become a folder on the way of a later path.
        if (letter == u'g' || letter == u'z' || letter == u'm') promises->keepsLinks = false;
      }
    }
    std::u16string path = TakePath(data);
    if (LeadsThroughLink(path)) promises->keepsLinks = false;
    // A path that begins with "-" is an option group.
    if (!path.empty() && path[0] == u'-') promises->keepsAll = promises->keepsLinks = false;
    line += u" " + Quoted(path);
  }
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
  std::u16string line = MakeLine(data, &promises);
  line.resize(std::min(line.find(u'\0'), line.size()));
  const std::vector<std::string> before = Describe(AllEntries());
  const std::vector<std::string> awayBefore = Describe(AwayEntries());
  const int status = callTreeCopyMove(GuardedWide(line));
  REQUIRE(std::find(std::begin(kAllowed), std::end(kAllowed), status) != std::end(kAllowed),
          "the engine returns %d", status);
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
