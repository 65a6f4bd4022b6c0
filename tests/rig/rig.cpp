#include "rig/rig.h"

#include <cstring>
#include <stdexcept>

#include "rig/library.h"
#include "rig/print.h"

namespace rig {
namespace {

Rig* currentRig = nullptr;

// True for null, the predefined registry keys and the pseudo handles: nobody owns them.
bool IsNobodys(uint64_t value) {
  bool predefinedKey = value >= ToWord(HKEY_CLASSES_ROOT) && value <= ToWord(HKEY_DYN_DATA);
  bool pseudoHandle = static_cast<int64_t>(value) < 0 && static_cast<int64_t>(value) >= -6;
  return value == 0 || predefinedKey || pseudoHandle;
}

uint64_t ReadPointee(uint64_t address, size_t size) {
  uint64_t value = 0;
  if (address != 0) {
    std::memcpy(&value, reinterpret_cast<const void*>(address), size < sizeof value ? size : sizeof value);
  }
  return value;
}

uint64_t ValueAt(const Place& place, const uint64_t* words, const size_t* sizes, uint64_t result) {
  switch (place.where) {
    case Place::Where::kResult:
      return result;
    case Place::Where::kArgument:
      return words[place.index];
    default:
      return ReadPointee(words[place.index], sizes[place.index]);
  }
}

}  // namespace

Rig::Rig(Policy policy) : policy_(policy) {
  if (currentRig != nullptr) {
    throw std::runtime_error("a rig is in force already");
  }
  currentRig = this;
  declarations::Reset();
}

Rig::~Rig() {
  currentRig = nullptr;
}

Rig* Rig::Current() {
  return currentRig;
}

void Rig::Attach(Library& library) {
  library.ForEachImport([](const Import& import) {
    const Declaration* declaration = import.ordinal != 0 ? declarations::Find(import.module, import.ordinal)
                                                         : declarations::Find(import.module, import.name);
    if (declaration == nullptr) {
      Fail("the library imports " + import.module + "!" +
           (import.ordinal != 0 ? "#" + std::to_string(import.ordinal) : import.name) +
           ", which no line of tests/rig/tables/*.cpp declares");
    } else if (!declaration->IsUntouched()) {
      Library::Patch(import, declaration->Thunk());
    }
  });
}

void Rig::UseReal(std::string_view name) {
  declarations::Named(name).behaviour = Declaration::Behaviour::kReal;
}

void Rig::MakeLoud(std::string_view name) {
  declarations::Named(name).loud = true;
}

void Rig::BeginCounting(int failing) {
  counting_ = true;
  failing_ = failing;
  failureApplied_ = false;
  counted_.clear();
}

bool Rig::CountCall(const Declaration& declaration, std::string text) {
  bool fails = static_cast<int>(counted_.size()) == failing_;
  counted_.push_back({declaration.Name(), std::move(text)});
  failureApplied_ = failureApplied_ || fails;
  return fails;
}

void Rig::Unexpected(const Declaration& declaration, const std::string& call) {
  Fail("unexpected call (neither the test nor the world answers " + declaration.Module() + "!" +
       declaration.Name() + "): " + call);
}

void Rig::CheckUses(const Declaration& declaration, const uint64_t* words) {
  if (declaration.TakesSession() && static_cast<uint32_t>(words[0]) != session) {
    Fail(declaration.Name() + " is given " + std::to_string(words[0]) + " instead of the session");
  }
  for (const Declaration::Resource& used : declaration.Used()) {
    uint64_t value = words[used.place.index];
    if (!IsNobodys(value) && !ledger.Holds(*used.kind, value)) {
      Fail(declaration.Name() + " is given a " + used.kind->name + " (" + HexText(value) +
           ") that the library does not hold");
    }
  }
}

void Rig::Book(const Declaration& declaration, const uint64_t* words, const size_t* sizes, uint64_t result,
               const void* caller) {
  if (!declaration.Succeeded(result)) {
    if (spoils) Spoil(declaration, words, sizes);
    return;
  }
  for (const Declaration::Resource& released : declaration.Released()) {
    uint64_t value = ValueAt(released.place, words, sizes, result);
    if (!IsNobodys(value)) {
      ledger.Give(*released.kind, value, declaration.Name());
    }
  }
  for (const Declaration::Resource& acquired : declaration.Acquired()) {
    uint64_t value = ValueAt(acquired.place, words, sizes, result);
    if (!IsNobodys(value)) {
      ledger.Take(*acquired.kind, value, {}, caller);
    }
  }
}

void Rig::Spoil(const Declaration& declaration, const uint64_t* words, const size_t* sizes) {
  // An address without memory; not a valid handle either.
  const uint64_t rubbish = 0xBADBAD0;
  for (int index : declaration.HandedOut()) {
    if (words[index] != 0) {
      // An untyped pointer points to a pointer.
      size_t size = sizes[index] == 0 || sizes[index] > sizeof rubbish ? sizeof rubbish : sizes[index];
      std::memcpy(reinterpret_cast<void*>(words[index]), &rubbish, size);
    }
  }
}

}  // namespace rig
