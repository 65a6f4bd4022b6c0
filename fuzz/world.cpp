#include "world.h"

#include <cstdarg>

#include "guarded.h"
#include "require.h"

World world;

namespace {

// What the library has, the newest last: it is given back soon, and then found at once.
std::vector<std::pair<const void*, Kind>> held;
uintptr_t lastHandle;
bool hasFailed;

std::vector<void (*)()>& Resets() {
  static std::vector<void (*)()> resets;
  return resets;
}

auto FindHeld(const void* thing) {
  return std::find_if(held.rbegin(), held.rend(), [thing](const auto& each) { return each.first == thing; });
}

const char* NameOf(Kind kind) {
  static constexpr const char* kNames[] = {
      "block",  "local block", "task block",    "search", "handle",    "key",    "record",  "service",
      "module", "buffer",      "session block", "string", "reference", "policy", "binding", "list of names"};
  return kNames[static_cast<int>(kind)];
}

}  // namespace

void Fail(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  fputs("\nhxfuzz: ", stderr);
  vfprintf(stderr, format, arguments);
  fputs("\n", stderr);
  va_end(arguments);
  abort();
}

AtBegin::AtBegin(void (*reset)()) {
  Resets().push_back(reset);
}

void BeginWorld() {
  held.clear();
  hasFailed = false;
  lastHandle = 0;
  world = World{};
  ForgetGuarded();
  for (auto* reset : Resets()) reset();
}

void EndWorld() {
  for (const auto& [thing, kind] : held) Fail("a %s is left over", NameOf(kind));
  REQUIRE(world.mode == world.modeBefore, "the error mode is left at %u; it was %u", world.mode,
          world.modeBefore);
}

void TakeFailure(Data* data) {
  // Half of the runs have no failure.
  constexpr UINT kModes[] = {SEM_NOGPFAULTERRORBOX, SEM_FAILCRITICALERRORS, SEM_NOOPENFILEERRORBOX, 0};
  uint8_t choice = data->Byte();
  world.mode = world.modeBefore = kModes[choice >> 2 & 3];
  if (!(choice & 1)) return;
  world.failsOn = choice & 2;
  world.failing = uint32_t{data->Byte()} + 1;
}

bool MustFail() {
  ++world.calls;
  bool fails =
      world.failing && (world.calls == world.failing || (world.failsOn && world.calls > world.failing));
  hasFailed = hasFailed || fails;
  return fails;
}

bool HasFailed() {
  return hasFailed;
}

void* Took(Kind kind, void* thing) {
  REQUIRE(FindHeld(thing) == held.rend(), "a %s is taken twice", NameOf(kind));
  held.emplace_back(thing, kind);
  return thing;
}

void NeedHeld(Kind kind, const void* thing) {
  const auto found = FindHeld(thing);
  REQUIRE(found != held.rend(), "a %s is used that is not held: %p", NameOf(kind), thing);
  REQUIRE(found->second == kind, "a %s is used as a %s", NameOf(found->second), NameOf(kind));
}

void GaveBack(Kind kind, const void* thing) {
  NeedHeld(kind, thing);
  held.erase(std::next(FindHeld(thing)).base());
}

void* NewHandle(Kind kind) {
  // Addresses that no block can have, and that are not small, like real handles, nor the value of a failure.
  constexpr uintptr_t kFirstHandle = 0x1000;
  constexpr uintptr_t kStep = 4;
  return Took(kind, reinterpret_cast<void*>(kFirstHandle + kStep * ++lastHandle));
}

void* NewBlock(Kind kind, size_t size) {
  constexpr int kRubbish = 0xA5;
  void* block = malloc(size ? size : 1);
  REQUIRE(block, "no memory for a block");
  memset(block, kRubbish, size);
  return Took(kind, block);
}

void FreeBlock(Kind kind, void* block) {
  GaveBack(kind, block);
  free(block);
}

std::u16string_view ViewOf(const wchar_t* text) {
  size_t length = 0;
  while (text[length]) ++length;
  return {reinterpret_cast<const char16_t*>(text), length};
}
