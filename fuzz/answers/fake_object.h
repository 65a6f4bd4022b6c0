// Objects of COM whose methods are answered one by one. Used by the answers that have such objects.
#pragma once

#include "require.h"
#include "world.h"

#include <objbase.h>
#include <oleauto.h>

/// An object. While the library has a reference to it, it is noted as taken.
struct FakeObject {
  void* const* methods;  ///< the table of its interface
  LONG references;       ///< those that the library has
};

/// The place of a method in the table of its interface.
template <typename Method>
size_t SlotOf(Method method) {
  uintptr_t value;
  memcpy(&value, &method, sizeof value);
  // A pointer to a virtual method is one more than its offset in the table.
  return (value - 1) / sizeof(void*);
}

/// The table of an interface. A method without an answer of its own succeeds, unless it has to fail, and does
/// nothing.
struct Table {
  static constexpr size_t kMostMethods = 128;  ///< more than any interface has
  std::array<void*, kMostMethods> methods;     ///< the answers

  Table();
  /// Answers QueryInterface by `function`; without that it finds no other interface.
  Table& SetQuery(HRESULT(IMAGE_ABI* function)(FakeObject*, REFIID, void**)) {
    methods[0] = reinterpret_cast<void*>(function);
    return *this;
  }
  /// Answers `method` by `function`, which takes the object and then the arguments of the method.
  template <typename Method, typename Function>
  Table& Set(Method method, Function function) {
    const size_t slot = SlotOf(method);
    REQUIRE(slot < kMostMethods, "an interface has %zu methods", slot + 1);
    methods[slot] = reinterpret_cast<void*>(function);
    return *this;
  }
};

/// Makes the objects of a class, which is known by the first number of its identifier. A static object.
struct FakeClass {
  /// Registers the class before main.
  FakeClass(DWORD first, const Table& (*table)());
};

/// Returns the table of a class's objects, or null.
const Table* TableOfClass(DWORD first);

/// Returns a new object, to which the library has one reference.
FakeObject* NewObject(const Table& table);

/// Stores a new object at `out`, or fails.
HRESULT Give(const Table& table, void** out);

/// The same, but now and then a success without an object.
HRESULT Hand(const Table& table, void** out);

/// Says that the library loses its references to `object` on purpose: they are not noted as taken any more,
/// and using the object fails.
void LoseOnPurpose(FakeObject* object);

/// True if the library has no reference to any object.
bool AllObjectsAreReleased();

/// Returns a system string with `text`, which the library frees.
BSTR MakeString(std::u16string_view text);

/// A QueryInterface whose other interfaces are in the same table: stores the object itself.
HRESULT IMAGE_ABI AnswerSameObject(FakeObject* object, REFIID id, void** out);
/// A method that only reads a text, which must not be empty.
HRESULT IMAGE_ABI AnswerPutText(FakeObject* object, BSTR text);
/// A method that only reads a text, which may be empty or null.
HRESULT IMAGE_ABI AnswerPutAnyText(FakeObject* object, BSTR text);
/// A method that returns a text.
HRESULT IMAGE_ABI AnswerGetText(FakeObject* object, BSTR* text);
