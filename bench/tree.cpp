// Compares how whole trees are copied, moved and walked by the library, by a bare loop over the same Windows
// calls on a list made beforehand, by std::filesystem, and by the shell.
//
//   bench_tree [full]     "full" adds trees of 10,000 and 100,000 files, which take some minutes
//
// The subjects work on the same tree in turns. What one made is deleted, untimed, before the next turn. Each
// must leave as many files and folders as there were.
// windows.h comes before shellapi.h, which needs it.
#include <windows.h>

#include <shellapi.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "bench.h"
#include "files/dir_walker.h"
#include "files/tree_copy.h"

namespace {

namespace fs = std::filesystem;

// The shape of a tree that the benchmarks make.
struct Shape {
  const char* name;
  unsigned files;
  unsigned filesPerFolder;
  unsigned depth;  // folders inside each other; 1: all folders lie side by side
};

constexpr Shape kShapes[] = {
    {"1,000 files, 10 folders side by side", 1000, 100, 1},
    {"1,000 files, 50 folders inside each other", 1000, 20, 50},
};
constexpr Shape kLargeShapes[] = {
    {"10,000 files, 100 folders side by side", 10000, 100, 1},
    {"10,000 files, 10 times 50 folders inside each other", 10000, 20, 50},
    {"100,000 files, 1,000 folders side by side", 100000, 100, 1},
    {"100,000 files, 100 times 50 folders inside each other", 100000, 20, 50},
};

const std::wstring kBase = L"C:\\hxbench";
const std::wstring kSource = kBase + L"\\source";
const std::wstring kTarget = kBase + L"\\target";

// One entry of the tree; its name is relative to the root.
struct Entry {
  std::wstring name;
  bool isFolder;
};

// Makes the tree `shape` at kSource.
void MakeTree(const Shape& shape) {
  fs::create_directories(kSource);
  std::wstring folder = kSource;
  for (unsigned i = 0; i < shape.files; ++i) {
    if (i % shape.filesPerFolder == 0) {
      const unsigned number = i / shape.filesPerFolder;
      // Short names inside: the shell takes no path of 260 characters.
      const bool isOutermost = number % shape.depth == 0;
      folder = isOutermost ? kSource + L"\\f" + std::to_wstring(number) : folder + L"\\d";
      if (!CreateDirectoryW(folder.c_str(), nullptr))
        bench::Die("cannot make a folder: error %lu", GetLastError());
    }
    std::ofstream(fs::path(folder + L"\\file" + std::to_wstring(i) + L".dat")) << i;
  }
}

// Returns every entry of the tree, each folder before its content.
std::vector<Entry> List(const std::wstring& root) {
  std::vector<Entry> entries;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    entries.push_back({entry.path().wstring().substr(root.size()), entry.is_directory()});
  }
  return entries;
}

void Remove(const std::wstring& root) {
  static auto* const treeDelete = bench::Internal<decltype(TreeDelete)>("TreeDelete");
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW(root.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  FindClose(search);
  if (const DWORD error = treeDelete(root.c_str(), &found))
    bench::Die("cannot delete a tree: error %lu", error);
}

void Close(HANDLE search) {
  if (search != INVALID_HANDLE_VALUE) FindClose(search);
}

// Looks up a name as the engine does.
void LookUp(const std::wstring& name) {
  WIN32_FIND_DATAW found;
  Close(FindFirstFileW(name.c_str(), &found));
}

// Lists a folder and ignores the entries.
void ListOnly(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
  while (search != INVALID_HANDLE_VALUE && FindNextFileW(search, &found)) bench::Keep(found);
  Close(search);
}

// Makes the Windows calls of the engine's copy, for the entries of a list.
void CopyBare(const std::vector<Entry>& entries) {
  LookUp(kTarget);
  LookUp(kSource);
  CreateDirectoryW(kTarget.c_str(), nullptr);
  ListOnly(kSource);
  for (const Entry& entry : entries) {
    const std::wstring source = kSource + entry.name;
    const std::wstring target = kTarget + entry.name;
    LookUp(target);
    LookUp(source);
    if (entry.isFolder) {
      CreateDirectoryW(target.c_str(), nullptr);
      ListOnly(source);
    } else {
      CopyFileW(source.c_str(), target.c_str(), TRUE);
    }
  }
}

void CopyByEngine(const std::vector<Entry>&) {
  static auto* const copyItem = bench::Internal<decltype(TreeCopyMoveItem)>("TreeCopyMoveItem");
  if (copyItem(kSource.c_str(), kTarget.c_str(), kTreeRecurse)) bench::Die("the engine failed");
}

void CopyByStandard(const std::vector<Entry>&) {
  fs::copy(kSource, kTarget, fs::copy_options::recursive);
}

// Runs a file operation of the shell on the names `from` and `to`, each closed by a terminator.
void ByShell(UINT operation, const std::wstring& from, const std::wstring& to) {
  SHFILEOPSTRUCTW job = {};
  job.wFunc = operation;
  job.pFrom = from.c_str();
  job.pTo = to.c_str();
  job.fFlags = FOF_NO_UI | FOF_MULTIDESTFILES;
  if (const int error = SHFileOperationW(&job)) bench::Die("the shell failed: %d", error);
}

void CopyByShell(const std::vector<Entry>&) {
  ByShell(FO_COPY, kSource + L'\0', kTarget + L'\0');
}

// Moving by pattern: moves what is directly in the source into the target.

void MoveByEngine(const std::vector<Entry>&) {
  static auto* const run = bench::Internal<decltype(TreeCopyMove)>("TreeCopyMove");
  if (run((L"x -m " + kSource + L"\\* " + kTarget + L"\\").c_str())) bench::Die("the engine failed");
}

void MoveBare(const std::vector<Entry>& top) {
  ListOnly(kSource);
  for (const Entry& entry : top) {
    const std::wstring target = kTarget + entry.name;
    LookUp(target);
    MoveFileW((kSource + entry.name).c_str(), target.c_str());
  }
}

void MoveByStandard(const std::vector<Entry>&) {
  std::vector<fs::path> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(kSource)) names.push_back(entry.path());
  for (const fs::path& name : names) fs::rename(name, kTarget / name.filename());
}

void MoveByShell(const std::vector<Entry>& top) {
  std::wstring from;
  std::wstring to;
  for (const Entry& entry : top) {
    from += kSource + entry.name + L'\0';
    to += kTarget + entry.name + L'\0';
  }
  ByShell(FO_MOVE, from, to);
}

// Walking: each function returns the number of entries.

size_t WalkByWalker() {
  static auto* const makePath = bench::Internal<decltype(PathFromWide)>("PathFromWide");
  static auto* const create = bench::Internal<decltype(DirWalkerCreate)>("DirWalkerCreate");
  static auto* const next = bench::Internal<decltype(DirWalkerNext)>("DirWalkerNext");
  PathObject* root = makePath(kSource.c_str());
  DirWalker* walker = create(root);
  size_t count = 0;
  while (PathObject* entry = next(walker)) {
    entry->ops.Release(entry);
    ++count;
  }
  walker->ops.Release(walker);
  root->ops.Release(root);
  return count;
}

size_t WalkByStandard() {
  size_t count = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(kSource)) {
    bench::Keep(entry);
    ++count;
  }
  return count;
}

size_t WalkBare(const std::wstring& folder) {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((folder + L"\\*.*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return 0;
  size_t count = 0;
  do {
    if (!wcscmp(found.cFileName, L".") || !wcscmp(found.cFileName, L"..")) continue;
    ++count;
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      count += WalkBare(folder + L"\\" + found.cFileName);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  return count;
}

// One way to copy or move.
using Way = void (*)(const std::vector<Entry>& entries);

// Returns the ratios of `ways`, the first of which is the engine. Sets `perFile` to the microseconds that the
// engine takes for an entry. Calls `prepare` before each turn to restore the tree.
std::vector<double> Race(const std::vector<Way>& ways, const std::vector<Entry>& entries, unsigned rounds,
                         size_t expected, const std::function<void()>& prepare, double* perFile) {
  std::vector<std::vector<double>> ratios(ways.size());
  std::vector<double> own;
  for (unsigned round = 0; round < rounds; ++round) {
    std::vector<double> times(ways.size());
    for (size_t turn = 0; turn < ways.size(); ++turn) {
      const size_t i = (turn + round) % ways.size();
      prepare();
      times[i] = bench::Time([&](unsigned) { ways[i](entries); }, 1);
      if (List(kTarget).size() != expected) bench::Die("way %u skipped an entry", static_cast<unsigned>(i));
    }
    for (size_t i = 1; i < ways.size(); ++i) ratios[i].push_back(times[i] / times[0]);
    own.push_back(times[0]);
  }
  *perFile = bench::Median(own) / static_cast<double>(expected);
  std::vector<double> medians;
  for (size_t i = 1; i < ways.size(); ++i) medians.push_back(bench::Median(ratios[i]));
  return medians;
}

class Report {
 public:
  void Add(const Shape& shape) {
    // One round is enough for a large tree, which repeats the same work many times.
    const unsigned rounds = shape.files > 1000 ? 1 : 5;
    Remove(kBase);
    MakeTree(shape);
    const std::vector<Entry> entries = List(kSource);
    double perFile;

    walk_.Add(shape.name, Walk(entries.size()));
    copy_.Add(shape.name, Race(
                              {CopyByEngine, CopyBare, CopyByStandard, CopyByShell}, entries, rounds,
                              entries.size(), [] { Remove(kTarget); }, &perFile));
    std::printf("%s: %.1f microseconds an entry to copy\n", shape.name, perFile);
    std::fflush(stdout);
    // The moves need all files in one folder, and this Windows compares every name of it at each look-up.
    if (shape.files <= kMostInOneFolder) move_.Add(shape.name, Moves(entries, rounds));
    std::fflush(stdout);
  }

  void Print() const {
    walk_.Print();
    copy_.Print();
    move_.Print();
  }

 private:
  static constexpr unsigned kMostInOneFolder = 1000;

  static std::vector<double> Walk(size_t expected) {
    if (WalkByWalker() != expected || WalkBare(kSource) != expected) bench::Die("a walk skipped an entry");
    return bench::Ratios({[](unsigned count) {
                            while (count--) bench::Keep(WalkByWalker());
                          },
                          [](unsigned count) {
                            while (count--) bench::Keep(WalkBare(kSource));
                          },
                          [](unsigned count) {
                            while (count--) bench::Keep(WalkByStandard());
                          }},
                         {.rounds = 11, .microseconds = 1000});
  }

  static std::vector<double> Moves(const std::vector<Entry>& entries, unsigned rounds) {
    // Only the files, all in one folder: moving a folder is one call, whatever is in it.
    const std::wstring flat = kBase + L"\\flat";
    fs::create_directories(flat);
    std::vector<Entry> top;
    for (const Entry& entry : entries) {
      if (entry.isFolder) continue;
      const std::wstring name = entry.name.substr(entry.name.rfind(L'\\'));
      fs::rename(kSource + entry.name, flat + name);
      top.push_back({name, false});
    }
    double perFile;
    const auto prepare = [&] {
      Remove(kSource);
      fs::create_directories(kTarget);
      // Moves the tree back from where the turn before put it.
      if (fs::is_empty(kTarget)) {
        fs::remove(kTarget);
        fs::rename(flat, kSource);
      } else {
        fs::rename(kTarget, kSource);
      }
      fs::create_directories(kTarget);
    };
    Remove(kTarget);
    return Race({MoveByEngine, MoveBare, MoveByStandard, MoveByShell}, top, rounds, top.size(), prepare,
                &perFile);
  }

  bench::Table walk_{"Walking a tree: how many times as long the others take", {"bare loop", "standard"}};
  bench::Table copy_{"Copying a tree", {"bare loop", "standard", "shell"}};
  bench::Table move_{"Moving as many files by a pattern", {"bare loop", "standard", "shell"}};
};

}  // namespace

int main(int count, char** arguments) {
  Report report;
  for (const Shape& shape : kShapes) report.Add(shape);
  if (count > 1 && !std::strcmp(arguments[1], "full")) {
    for (const Shape& shape : kLargeShapes) report.Add(shape);
  }
  Remove(kBase);
  report.Print();
}
