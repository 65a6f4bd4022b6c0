#include "answers/fake_object.h"

namespace {

std::vector<std::unique_ptr<FakeObject>> objects;

std::map<DWORD, const Table& (*)()>& Classes() {
  static std::map<DWORD, const Table& (*)()> classes;
  return classes;
}

HRESULT IMAGE_ABI AnswerQueryInterface(FakeObject*, REFIID, void**) {
  return E_NOINTERFACE;
}

ULONG IMAGE_ABI AnswerAddRef(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  return static_cast<ULONG>(++object->references);
}

ULONG IMAGE_ABI AnswerRelease(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  if (--object->references == 0) GaveBack(Kind::kReference, object);
  return static_cast<ULONG>(object->references);
}

HRESULT IMAGE_ABI AnswerAnyMethod(FakeObject* object) {
  NeedHeld(Kind::kReference, object);
  return MustFail() ? E_FAIL : S_OK;
}

void Reset() {
  objects.clear();
}

const AtBegin kReset(Reset);

}  // namespace

Table::Table() {
  methods.fill(reinterpret_cast<void*>(&AnswerAnyMethod));
  methods[0] = reinterpret_cast<void*>(&AnswerQueryInterface);
  methods[1] = reinterpret_cast<void*>(&AnswerAddRef);
  methods[2] = reinterpret_cast<void*>(&AnswerRelease);
}

FakeClass::FakeClass(DWORD first, const Table& (*table)()) {
  Classes()[first] = table;
}

const Table* TableOfClass(DWORD first) {
  auto found = Classes().find(first);
  return found == Classes().end() ? nullptr : &found->second();
}

FakeObject* NewObject(const Table& table) {
  objects.push_back(std::make_unique<FakeObject>(FakeObject{table.methods.data(), 1}));
  Took(Kind::kReference, objects.back().get());
  return objects.back().get();
}

HRESULT Give(const Table& table, void** out) {
  if (MustFail()) {
    *out = reinterpret_cast<void*>(0xA5A5);
    return E_FAIL;
  }
  *out = NewObject(table);
  return S_OK;
}

HRESULT Hand(const Table& table, void** out) {
  if (world.data.Below(16) != 1) return Give(table, out);
  *out = nullptr;
  return S_OK;
}

void LoseOnPurpose(FakeObject* object) {
  GaveBack(Kind::kReference, object);
  object->references = 0;
}

bool AllObjectsAreReleased() {
  return std::all_of(objects.begin(), objects.end(),
                     [](const auto& object) { return object->references == 0; });
}

BSTR MakeString(std::u16string_view text) {
  auto* string = static_cast<wchar_t*>(NewBlock(Kind::kString, (text.size() + 1) * sizeof(wchar_t)));
  memcpy(string, text.data(), text.size() * sizeof(wchar_t));
  string[text.size()] = 0;
  return string;
}

HRESULT IMAGE_ABI AnswerSameObject(FakeObject* object, REFIID, void** out) {
  NeedHeld(Kind::kReference, object);
  *out = nullptr;
  if (MustFail()) return E_NOINTERFACE;
  ++object->references;
  *out = object;
  return S_OK;
}

HRESULT IMAGE_ABI AnswerPutText(FakeObject* object, BSTR text) {
  REQUIRE(text && *text, "an empty text is set");
  return AnswerPutAnyText(object, text);
}

HRESULT IMAGE_ABI AnswerPutAnyText(FakeObject* object, BSTR text) {
  NeedHeld(Kind::kReference, object);
  // Reads the text to its end.
  if (text) ViewOf(text);
  return MustFail() ? E_FAIL : S_OK;
}

HRESULT IMAGE_ABI AnswerGetText(FakeObject* object, BSTR* text) {
  NeedHeld(Kind::kReference, object);
  if (MustFail()) return E_FAIL;
  *text = world.data.Below(8) ? MakeString(world.data.Wide(20)) : nullptr;
  return S_OK;
}
