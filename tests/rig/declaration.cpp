#include "rig/declaration.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <stdexcept>

namespace rig {

Declaration::Declaration(std::string module, std::string name, Failing failing, const void* thunk)
    : module_(std::move(module)), name_(std::move(name)), failing_(failing), thunk_(thunk) {
}

Declaration& Declaration::Ordinal(WORD ordinal) {
  ordinal_ = ordinal;
  return *this;
}

Declaration& Declaration::Quiet() {
  quiet_ = true;
  return *this;
}

Declaration& Declaration::RealByDefault() {
  real_ = true;
  return *this;
}

Declaration& Declaration::Untouched() {
  untouched_ = true;
  return *this;
}

Declaration& Declaration::AbsentByDefault() {
  absent_ = true;
  return *this;
}

Declaration& Declaration::Acquires(const Kind& kind, Place place) {
  acquired_.push_back({&kind, place});
  return place.where == Place::Where::kPointee ? HandsOut(place) : *this;
}

Declaration& Declaration::Releases(const Kind& kind, Place place) {
  released_.push_back({&kind, place});
  return *this;
}

Declaration& Declaration::Uses(const Kind& kind, Place place) {
  used_.push_back({&kind, place});
  return *this;
}

Declaration& Declaration::Session() {
  session_ = true;
  return *this;
}

Declaration& Declaration::Hex(Place place) {
  hex_ |= 1U << place.index;
  return *this;
}

Declaration& Declaration::CountedText(Place data, Place count) {
  counted_.push_back({data.index, count.index, true});
  return *this;
}

Declaration& Declaration::CountedBytes(Place data, Place count) {
  counted_.push_back({data.index, count.index, false});
  return *this;
}

Declaration& Declaration::TextArguments() {
  textArguments_ = true;
  return *this;
}

Declaration& Declaration::HandsOut(Place place) {
  handedOut_.push_back(place.index);
  return *this;
}

const Declaration::Counted* Declaration::CountOf(size_t index) const {
  for (const Counted& counted : counted_) {
    if (counted.data == static_cast<int>(index)) {
      return &counted;
    }
  }
  return nullptr;
}

const Kind* Declaration::KindOf(size_t index) const {
  for (const auto* list : {&released_, &used_}) {
    for (const Resource& resource : *list) {
      if (resource.place.where == Place::Where::kArgument &&
          resource.place.index == static_cast<int>(index)) {
        return resource.kind;
      }
    }
  }
  return nullptr;
}

void* Declaration::Real() const {
  if (realFunction_ == nullptr) {
    HMODULE module = LoadLibraryA(module_.c_str());
    if (module != nullptr) {
      const char* key =
          ordinal_ != 0 ? reinterpret_cast<const char*>(static_cast<uintptr_t>(ordinal_)) : name_.c_str();
      realFunction_ = reinterpret_cast<void*>(GetProcAddress(module, key));
    }
  }
  return realFunction_;
}

bool Declaration::Succeeded(uint64_t result) const {
  switch (failing_.success) {
    case Failing::Success::kOtherThanFailing:
      return result != failing_.result;
    case Failing::Success::kZero:
      return result == 0;
    case Failing::Success::kNotNegative:
      return static_cast<int32_t>(result) >= 0;
    default:
      return true;
  }
}

namespace declarations {
namespace {

struct Table {
  std::vector<std::unique_ptr<Declaration>> all;
  Declaration* hidden = nullptr;
};

// The tables add to it before main, in any order.
Table& TheTable() {
  static Table table;
  return table;
}

template <class Test>
Declaration* FindIf(Test&& test) {
  for (auto& declaration : TheTable().all) {
    if (declaration.get() != TheTable().hidden && test(*declaration)) {
      return declaration.get();
    }
  }
  return nullptr;
}

}  // namespace

Declaration& Add(Declaration* declaration) {
  TheTable().all.emplace_back(declaration);
  return *declaration;
}

std::string ModuleName(std::string_view path) {
  size_t folder = path.find_last_of("\\/");
  std::string name(folder == std::string_view::npos ? path : path.substr(folder + 1));
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::toupper(letter)); });
  if (name.size() > 4 && name.compare(name.size() - 4, 4, ".DLL") == 0) {
    name.resize(name.size() - 4);
  }
  return name;
}

Declaration* Find(std::string_view module, std::string_view name) {
  std::string key = ModuleName(module);
  return FindIf([&](const Declaration& one) { return one.Name() == name && one.Module() == key; });
}

Declaration* Find(std::string_view module, WORD ordinal) {
  std::string key = ModuleName(module);
  return FindIf([&](const Declaration& one) { return one.GetOrdinal() == ordinal && one.Module() == key; });
}

bool HasModule(std::string_view module) {
  std::string key = ModuleName(module);
  return FindIf([&](const Declaration& one) { return one.Module() == key; }) != nullptr;
}

void ForEach(const std::function<void(const Declaration&)>& visit) {
  for (const auto& declaration : TheTable().all) {
    if (declaration.get() != TheTable().hidden) visit(*declaration);
  }
}

Declaration& Named(std::string_view name) {
  Declaration* found = FindIf([&](const Declaration& one) { return one.Name() == name; });
  if (found == nullptr) {
    throw std::invalid_argument("no function " + std::string(name) +
                                " is declared in tests/rig/tables/*.cpp");
  }
  return *found;
}

void Reset() {
  for (auto& declaration : TheTable().all) {
    declaration->behaviour = Declaration::Behaviour::kAsDeclared;
    declaration->loud = false;
  }
}

Hidden::Hidden(std::string_view name) : hidden_(&Named(name)) {
  TheTable().hidden = hidden_;
}

Hidden::~Hidden() {
  TheTable().hidden = nullptr;
}

}  // namespace declarations
}  // namespace rig
