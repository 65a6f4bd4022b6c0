// Operations on paths, with failing allocations, and with records that are damaged or of another kind. Every
// path is well-formed, its text has the length that is measured, and everything is given back.

#include "disk.h"
#include "guarded.h"
#include "image.h"
#include "require.h"
#include "target.h"
#include "world.h"

#include "paths/path.h"
#include "paths/path_query.h"

namespace {

OPERATION(PathMake);
OPERATION(PathJoinWide);
OPERATION(PathFromWide);
OPERATION(PathFromUtf8);
OPERATION(PathFromWrittenWide);
OPERATION(PathFromWrittenUtf8);
OPERATION(PathJoin);
OPERATION(PathFolder);
OPERATION(PathReplaceLeaf);
OPERATION(PathAppendLnk);
OPERATION(PathCommonAncestor);
OPERATION(PathFlatten);
OPERATION(PathToWide);
OPERATION(PathCopyToBuffer);
OPERATION(RecordBufferFree);
constinit Operation<void(void*)> callHeapFreeSafe("HeapFreeSafe");
constinit Operation<PathObject*(Object*)> callDirWalkerNext("DirWalkerNext");

// The operations of an object, which have the calling convention of the image.
template <typename Result, typename... Arguments>
Result CallOperation(Result (*operation)(Arguments...), std::type_identity_t<Arguments>... arguments) {
  return reinterpret_cast<ImageFunction<Result(Arguments...)>>(operation)(arguments...);
}

Object* Retained(Object* object) {
  return CallOperation(object->ops.Retain, object);
}

void Release(Object* object) {
  if (object) CallOperation(object->ops.Release, object);
}

// The paths of a run; each holds one reference.
class Paths {
 public:
  explicit Paths(Data* data) : data_(data) {}
  void Run();

 private:
  static constexpr size_t kPlaces = 6;
  PathObject*& Any() { return paths_[data_->Below(kPlaces)]; }
  void Put(PathObject* path);
  void CheckText(PathObject* path);
  void Compare();
  void StoreAndRead();
  void ReadDamaged();
  void Walk();
  void CopyToBuffer();

  Data* data_;
  PathObject* paths_[kPlaces] = {};
};

void Paths::Put(PathObject* path) {
  if (path) CheckText(path);
  PathObject*& place = Any();
  Release(place);
  place = path;
}

// The nodes of a path begin with a backslash, but for a drive; and the text of the path is as long as its
// measure.
void Paths::CheckText(PathObject* path) {
  REQUIRE(path->typeTag == kPathTag, "a path has the tag %x", path->typeTag);
  for (const PathObject* node = path; node; node = node->parent) {
    REQUIRE(node->refCount >= 1, "a node has %d references", node->refCount);
    REQUIRE(node->length >= 0, "a node has the length %d", node->length);
    REQUIRE(node->text[node->length] == '\0', "a node's text is not terminated");
  }
  const unsigned measured = CallOperation(path->ops.CopyText, path, nullptr, 0, -1, nullptr, 'O');
  if (measured + 1 >= kMostGuarded) return;
  char* text = static_cast<char*>(GuardedBuffer(measured));
  const unsigned written = CallOperation(path->ops.CopyText, path, text, measured, -1, nullptr, 'O');
  REQUIRE(HasFailed() || written == measured, "a path of %u bytes has %u", measured, written);
  const unsigned room = measured / 2;
  char* part = static_cast<char*>(GuardedBuffer(room));
  const unsigned count = CallOperation(path->ops.CopyText, path, part, room, -1, nullptr, 'O');
  REQUIRE(count <= room && (HasFailed() || !memcmp(part, text, count)), "a cut path is another one");
}

void Paths::Compare() {
  PathObject* a = Any();
  PathObject* b = Any();
  if (!a || !b) return;
  const int order = CallOperation(a->ops.Compare, a, b);
  const int reverse = CallOperation(b->ops.Compare, b, a);
  REQUIRE(order >= -1 && order <= 1, "two paths compare as %d", order);
  REQUIRE(HasFailed() || order == -reverse, "two paths compare as %d and as %d", order, reverse);
}

// What is stored is read back as an equal path.
void Paths::StoreAndRead() {
  PathObject* path = Any();
  if (!path) return;
  RecordBuffer buffer{};
  const DWORD identifier = data_->Take<DWORD>();
  for (uint32_t count = 1 + data_->Below(4); count; --count) {
    const size_t before = buffer.size;
    const UINT_PTR size = CallOperation(path->ops.Query, path, kQueryStore, identifier, &buffer, nullptr, 0);
    REQUIRE(buffer.size == before + size && size % 4 == 0, "an entry of %zu bytes adds %zu",
            static_cast<size_t>(size), buffer.size - before);
  }
  while (buffer.position < buffer.size) {
    const size_t before = buffer.position;
    auto* read = reinterpret_cast<PathObject*>(
        CallOperation(path->ops.Query, path, kQueryRead, identifier, &buffer, nullptr, 0));
    if (!read) {
      REQUIRE(HasFailed() && buffer.position == before, "an entry that was stored cannot be read");
      break;
    }
    const int order = CallOperation(path->ops.Compare, path, read);
    REQUIRE(HasFailed() || order == 0, "a path compares with what it is stored as, \"%s\", as %d", read->text,
            order);
    Release(read);
  }
  callRecordBufferFree(&buffer);
  REQUIRE(!buffer.bytes && !buffer.size && !buffer.capacity && !buffer.position,
          "a freed buffer is not empty");
}

// Entries of any form: nothing after them is read, and what is not whole leaves the position.
void Paths::ReadDamaged() {
  PathObject* path = Any();
  if (!path) return;
  std::string bytes;
  for (uint32_t count = data_->Below(4); count; --count) {
    std::string text = data_->Text(24);
    const uint8_t damage = data_->Byte();
    DWORD identifier = data_->Byte() % 3u, tag = kPathEntryTag;
    DWORD length = __builtin_bswap32(static_cast<DWORD>(text.size()));
    if (damage & 1) tag = data_->Take<DWORD>();
    if (damage & 2) length = data_->Take<DWORD>();
    bytes.append(reinterpret_cast<const char*>(&identifier), sizeof identifier);
    bytes.append(reinterpret_cast<const char*>(&tag), sizeof tag);
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
    bytes += text;
    if (!(damage & 4)) bytes.append((4 - text.size() % 4) % 4, '\0');
  }
  const size_t cut = data_->Byte() % 16u;
  bytes.resize(bytes.size() - std::min(cut, bytes.size()));
  RecordBuffer buffer{GuardedBytes(bytes), bytes.size(), bytes.size(), 0};
  for (;;) {
    const size_t before = buffer.position;
    auto* read = reinterpret_cast<PathObject*>(
        CallOperation(path->ops.Query, path, kQueryRead, data_->Byte() % 3u, &buffer, nullptr, 0));
    if (!read) {
      REQUIRE(buffer.position == before, "what is no entry moves the position");
      break;
    }
    REQUIRE(buffer.position > before && buffer.position <= buffer.size, "an entry ends at %zu of %zu",
            buffer.position, buffer.size);
    // The text of an entry may have any bytes, so it is not a path that other operations take.
    Release(read);
  }
}

void Paths::Walk() {
  PathObject* path = Any();
  if (!path) return;
  auto create = reinterpret_cast<ImageFunction<Object*(PathObject*)>>(
      CallOperation(path->ops.Query, path, kQueryWalker, kWalkerConstructor, nullptr, nullptr, 0));
  if (!create) return;
  Object* walker = create(path);
  if (!walker) return;
  // The entries of a walk need many places.
  for (uint32_t count = 0; count < 200; ++count) {
    PathObject* entry = callDirWalkerNext(walker);
    if (!entry) break;
    Release(entry);
  }
  Release(walker);
}

void Paths::CopyToBuffer() {
  PathObject* path = Any();
  const unsigned capacity = data_->Below(40);
  auto* buffer = static_cast<wchar_t*>(GuardedBuffer(capacity * sizeof(wchar_t)));
  const unsigned count = callPathCopyToBuffer(path, buffer, capacity);
  REQUIRE(capacity == 0 ? count == 0 : count < capacity, "%u characters are copied into %u", count, capacity);
  REQUIRE(capacity == 0 || buffer[count] == 0, "the text of a path is not terminated");
}

void Paths::Run() {
  constexpr uint32_t kMostSteps = 10;
  for (uint32_t count = 1 + data_->Below(kMostSteps); count; --count) {
    const uint32_t step = data_->Below(21);
    switch (step) {
      case 0: {
        std::string text = data_->Text(40);
        const bool isTerminated = data_->Flag();
        const int length = isTerminated ? -1 : static_cast<int>(text.size());
        PathObject* parent = Any();
        // A text of a given length has no zero byte, as all callers' texts.
        text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
        Put(callPathMake(parent, isTerminated ? GuardedText(text) : GuardedBytes(text),
                         isTerminated ? length : static_cast<int>(text.size())));
        break;
      }
      case 1: {
        std::u16string text = data_->Wide(40);
        text.erase(std::remove(text.begin(), text.end(), u'\0'), text.end());
        const bool isTerminated = data_->Flag();
        Put(callPathJoinWide(Any(), isTerminated ? GuardedWide(text) : GuardedUnits(text),
                             isTerminated ? -1 : static_cast<int>(text.size())));
        break;
      }
      case 2:
      case 3:
        Put(callPathFromWide(GuardedWide(TakePath(data_))));
        break;
      case 4:
        Put(callPathFromUtf8(GuardedText(NarrowOf(TakePath(data_)))));
        break;
      case 5:
        Put(callPathFromWrittenWide(GuardedWide(TakePath(data_))));
        break;
      case 6:
        Put(callPathFromWrittenUtf8(GuardedText(data_->Text(40).c_str())));
        break;
      case 7:
      case 8:
        Put(callPathJoin(Any(), GuardedText(data_->Text(20).c_str())));
        break;
      case 9:
        Put(callPathFolder(Any()));
        break;
      case 10:
        Put(callPathReplaceLeaf(Any(), GuardedText(data_->Text(20).c_str())));
        break;
      case 11: {
        PathObject* link = callPathAppendLnk(Any());
        if (link) {
          REQUIRE(!strcmp(link->text + strlen(link->text) - 4, ".lnk"), "a link's name ends with %s",
                  link->text);
          Release(link);
        }
        break;
      }
      case 12: {
        PathObject* a = Any();
        Put(callPathCommonAncestor(a, Any()));
        break;
      }
      case 13:
        Put(callPathFlatten(Any()));
        break;
      case 14:
        if (wchar_t* text = callPathToWide(Any())) {
          REQUIRE(*text, "the wide text of a path is empty");
          callHeapFreeSafe(text);
        }
        break;
      case 15:
        CopyToBuffer();
        break;
      case 16:
        Compare();
        break;
      case 17:
        StoreAndRead();
        break;
      case 18:
        ReadDamaged();
        break;
      case 19:
        Walk();
        break;
      default:
        if (PathObject* path = Any()) Put(static_cast<PathObject*>(Retained(path)));
        break;
    }
  }
  for (PathObject* path : paths_) Release(path);
}

}  // namespace

void RunPaths(Data* data) {
  TakeFailure(data);
  ChooseDisk(data);
  Paths(data).Run();
}
