// Compares the path value with std::filesystem::path. A ratio is how many times as long the standard
// library's path takes for the same job.
//
//   join     appends a relative name to a folder: PathMake against operator/ with a name that is already a
//            path, so that it converts nothing
//   flatten  makes one text of the whole path: PathFlatten of a path of several nodes against a copy of the
//            whole path and against its UTF-8 text, u8string()
//   to wide  makes a new wide string for a system call: PathToWide against a copy of native()
//   way      all steps of an action: a folder, names appended to it, and the wide string
//
// If instructions are counted, nothing is timed: each job is counted once for each of the two.
#include <filesystem>
#include <string>

#include "bench.h"
#include "paths/path.h"

namespace {

namespace fs = std::filesystem;

struct Operations {
  decltype(&PathMake) make = bench::Internal<decltype(PathMake)>("PathMake");
  decltype(&PathFlatten) flatten = bench::Internal<decltype(PathFlatten)>("PathFlatten");
  decltype(&PathToWide) toWide = bench::Internal<decltype(PathToWide)>("PathToWide");
};

const Operations& Hx() {
  static const Operations operations;
  return operations;
}

void Release(PathObject* path) {
  path->ops.Release(path);
}

void FreeWide(wchar_t* text) {
  HeapFree(GetProcessHeap(), 0, text);
}

// A folder and names below it.
struct Sample {
  const char* name;
  std::string folder;
  std::vector<std::string> names;
};

fs::path FromUtf8(const std::string& text) {
  return fs::path(std::u8string(text.begin(), text.end()));
}

// The same path in both forms, and the folder and names that it is made of.
class Pair {
 public:
  explicit Pair(const Sample& sample) : sample_(sample), folder_(FromUtf8(sample.folder)), path_(folder_) {
    hxFolder_ = Hx().make(nullptr, sample.folder.c_str(), -1);
    hxPath_ = hxFolder_;
    hxPath_->ops.Retain(hxPath_);
    for (const std::string& name : sample.names) {
      PathObject* longer = Hx().make(hxPath_, name.c_str(), -1);
      Release(hxPath_);
      hxPath_ = longer;
      names_.push_back(FromUtf8(name));
      path_ /= names_.back();
    }
    wchar_t* wide = Hx().toWide(hxPath_);
    if (path_.native() != wide) bench::Die("%s: the two paths differ", sample.name);
    FreeWide(wide);
  }
  ~Pair() {
    Release(hxPath_);
    Release(hxFolder_);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  double Join() const {
    return Compare(
        "join",
        [this] {
          PathObject* joined = Hx().make(hxPath_, kLeaf, -1);
          bench::Keep(joined);
          Release(joined);
        },
        [this, leaf = fs::path(kLeaf)] {
          const fs::path joined = path_ / leaf;
          bench::Keep(joined);
        });
  }

  double FlattenAgainstCopy() const {
    return Compare(
        "flat/copy", [this] { Flatten(); },
        [this] {
          const fs::path copy = path_;
          bench::Keep(copy);
        });
  }

  double FlattenAgainstUtf8() const {
    return Compare(
        "flat/utf-8", [this] { Flatten(); },
        [this] {
          const std::u8string text = path_.u8string();
          bench::Keep(text);
        });
  }

  double ToWide() const {
    return Compare(
        "to wide",
        [this] {
          wchar_t* wide = Hx().toWide(hxPath_);
          bench::Keep(wide);
          FreeWide(wide);
        },
        [this] {
          const std::wstring wide = path_.native();
          bench::Keep(wide);
        });
  }

  double Way() const {
    return Compare(
        "way",
        [this] {
          PathObject* path = hxFolder_;
          path->ops.Retain(path);
          for (const std::string& name : sample_.names) {
            PathObject* longer = Hx().make(path, name.data(), static_cast<int>(name.size()));
            Release(path);
            path = longer;
          }
          wchar_t* wide = Hx().toWide(path);
          bench::Keep(wide);
          FreeWide(wide);
          Release(path);
        },
        [this] {
          fs::path path = folder_;
          for (const fs::path& name : names_) path = path / name;
          const wchar_t* wide = path.c_str();
          bench::Keep(wide);
        });
  }

 private:
  static constexpr char kLeaf[] = "settings.ini";

  template <class Ours, class Theirs>
  double Compare(const char* job, Ours ours, Theirs theirs) const {
    if (rig::IsCounted()) {
      const std::string name = std::string(job) + ": " + sample_.name;
      bench::CountWork("Paths", "hx", name, ours);
      bench::CountWork("Paths", "standard", name, theirs);
      return bench::kNone;
    }
    const auto repeat = [](auto work) {
      return [work](unsigned count) {
        while (count--) work();
      };
    };
    return bench::Ratios({repeat(ours), repeat(theirs)})[0];
  }

  void Flatten() const {
    PathObject* flat = Hx().flatten(hxPath_);
    bench::Keep(flat);
    Release(flat);
  }

  const Sample& sample_;
  fs::path folder_, path_;
  std::vector<fs::path> names_;
  PathObject* hxFolder_;
  PathObject* hxPath_;
};

const Sample kSamples[] = {
    {"C:\\Windows + 1 name", "C:\\Windows", {"Temp"}},
    {"C:\\ProgramData + 3 names", "C:\\ProgramData", {"Quillfern", "Ostrel", "sessions"}},
    {"a home folder + 6 names",
     "C:\\Users\\operator\\AppData\\Local",
     {"Quillfern", "Ostrel", "Client", "Settings", "backup-2026-01-31", "sessions"}},
    {"a Greek and Chinese folder + 3 names",
     "C:\\\xCE\x94\xCE\xB5\xCE\xB4\xCE\xBF\xCE\xBC\xCE\xAD\xCE\xBD\xCE\xB1",
     {"\xE6\x95\xB0\xE6\x8D\xAE", "Ostrel", "\xE6\x97\xA5\xE5\xBF\x97"}},
};

}  // namespace

int main() {
  bench::MarkLibrary();
  std::printf(
      "Paths: how many times as long std::filesystem::path takes (above 1: the path value is quicker)\n");
  bench::Table table("PathMake, PathFlatten, PathToWide",
                     {"join", "flat/copy", "flat/utf-8", "to wide", "way"});
  for (const Sample& sample : kSamples) {
    const Pair pair(sample);
    table.Add(sample.name,
              {pair.Join(), pair.FlattenAgainstCopy(), pair.FlattenAgainstUtf8(), pair.ToWide(), pair.Way()});
  }
  table.Print();
}
