// Fakes of COM objects. Used by tests of code that calls a COM interface.
//
//   auto& stream = TheWorld().com.Make<IStream>("stream");
//   stream.On<&IStream::Write>([](const void*, ULONG, ULONG*) { return S_OK; });
//   TheWorld().com.Register(CLSID_Something, stream);
#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "rig/call.h"

namespace rig {

/// The part that fakes of every interface share. It has the table of methods, counts the references that the
/// library holds (as `kInterface` in the ledger), and finds the fake of an interface pointer.
class FakeBase {
 public:
  /// `name` is the name in the trace; `iid` is the interface that QueryInterface answers for.
  FakeBase(Rig& rig, std::string name, const GUID& iid);
  virtual ~FakeBase() = default;
  FakeBase(const FakeBase&) = delete;
  FakeBase& operator=(const FakeBase&) = delete;

  /// Gives the library a reference: stores the pointer in `out` and records the reference in the ledger.
  void Give(void* out);
  /// Makes QueryInterface for `iid` return this object. Meant for base interfaces.
  void Also(const GUID& iid) { answers_.emplace_back(iid, this); }
  /// Makes QueryInterface for `iid` return another fake. Meant for a second interface of the same object.
  void Also(const GUID& iid, FakeBase& other) { answers_.emplace_back(iid, &other); }
  /// Answers QueryInterface.
  virtual HRESULT Query(const GUID& iid, void** out);
  /// Shows each Release in the trace too.
  void ShowReleases();
  /// Returns the name in the trace.
  const std::string& Name() const { return name_; }
  /// Returns the interface pointer that the library gets.
  void* Pointer() { return &layout_; }

  /// Returns the fake of an interface pointer.
  static FakeBase& Of(void* pointer) { return *static_cast<Layout*>(pointer)->fake; }

 protected:
  /// The number of slots in a method table; no interface of the system has more.
  static constexpr size_t kSlots = 128;

  /// One implemented method.
  struct Method {
    std::unique_ptr<Declaration> declaration;  ///< Its name and how it fails.
    std::shared_ptr<void> answer;              ///< A std::function with the method's signature.
  };

  /// Puts a method into a slot of the table.
  Declaration& Implement(size_t slot, const char* name, const void* thunk, std::shared_ptr<void> answer,
                         const Failing& failing);
  /// Returns the method in a slot, which is called now; fails the test if the library holds no reference to
  /// the object.
  virtual Method& Enter(size_t slot);

  /// Answers a call of a method that is not implemented: reports a fault and returns E_NOTIMPL.
  virtual HRESULT Trapped(size_t slot);

  /// The rig of the run.
  Rig& rig_;

  template <auto Member, class Type>
  friend class MethodThunk;

 private:
  /// What an interface pointer points to: the method table, as in every COM object, and the fake.
  struct Layout {
    const void* const* methods;
    FakeBase* fake;
  };
  /// Puts a trap into every slot.
  template <size_t... Slots>
  void FillWithTraps(std::index_sequence<Slots...>);
  /// Answers a method that the test did not implement.
  template <size_t Slot>
  static HRESULT Trap(void* self);
  /// Implements QueryInterface, AddRef and Release.
  void ImplementUnknown();

  std::string name_;
  std::vector<std::pair<GUID, FakeBase*>> answers_;
  std::array<const void*, kSlots> table_ = {};
  std::array<Method, kSlots> methods_;
  Layout layout_;
};

/// The function in the method table for `Member` (a pointer to a virtual method).
template <auto Member, class Type = decltype(Member)>
class MethodThunk;

template <auto Member, class Interface, class Result, class... Arguments>
class MethodThunk<Member, Result (Interface::*)(Arguments...)> {
 public:
  /// A test's implementation of the method.
  using Answer = std::function<Result(Arguments...)>;

  /// The function that the library calls.
  static Result Call(void* self, Arguments... arguments) {
    FakeBase::Method& method = FakeBase::Of(self).Enter(Slot());
    auto& answer = *static_cast<Answer*>(method.answer.get());
    return PassCall<Result>(*method.declaration, __builtin_return_address(0), answer, arguments...);
  }

  /// Returns the method's index in the table. It comes from the C++ ABI's representation of a pointer to a
  /// virtual method, which holds the offset in the table. The lowest bit of the first word (x64) or of the
  /// second (ARM64) is set as a mark.
  static size_t Slot() {
    auto member = Member;
    uintptr_t words[2] = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words, &member, sizeof words);
    return (words[0] & ~uintptr_t{1}) / sizeof(void*);
  }

  /// Returns the method's name ("Write"), taken from the compiler's name of this function.
  static const char* Name() {
    static const std::string name = [] {
      std::string text = __PRETTY_FUNCTION__;
      size_t start = text.find("Member = ");
      size_t end = text.find_first_of(",]", start);
      start = text.rfind("::", end) + 2;
      return text.substr(start, end - start);
    }();
    return name.c_str();
  }
};

/// A fake of an object with this interface. It counts references, answers QueryInterface for its own
/// interface, and has the methods that a test gives it. Any other method fails the test when called. Every
/// method call is in the trace ("name.Method(arguments) = result") and takes part in the sweep.
template <class Interface>
class FakeObject : public FakeBase {
 public:
  /// `name` is the name in the trace.
  FakeObject(Rig& rig, std::string name) : FakeBase(rig, std::move(name), __uuidof(Interface)) {
    if constexpr (std::is_base_of_v<IDispatch, Interface>) {
      Also(__uuidof(IDispatch));
    }
  }

  /// Implements a method; `failing` is what it returns when the sweep makes it fail. Returns the
  /// declaration, which takes the same setters as the declaration of a function. Arguments count from 0,
  /// without the object.
  template <auto Member, class Answer>
  Declaration& On(Answer answer, const Failing& failing = FailsAs(E_FAIL)) {
    using Thunk = MethodThunk<Member>;
    return Implement(Thunk::Slot(), Thunk::Name(), reinterpret_cast<const void*>(&Thunk::Call),
                     std::make_shared<typename Thunk::Answer>(std::move(answer)), failing);
  }
  /// Makes QueryInterface for this base interface return the object too.
  template <class Base>
  void AlsoIs() {
    static_assert(std::is_base_of_v<Base, Interface>);
    Also(__uuidof(Base));
  }
  /// Returns the object as a pointer to its interface.
  Interface* Get() { return static_cast<Interface*>(Pointer()); }
};

/// The COM functions and objects that the library meets. Part of the world.
class Com {
 public:
  /// Creates the part of the world that belongs to this rig.
  explicit Com(Rig& rig) : rig_(rig) {}
  /// Routes the functions of this part here.
  void Install();

  /// Creates a fake that lives as long as the world.
  template <class Interface>
  FakeObject<Interface>& Make(const std::string& name) {
    auto fake = std::make_unique<FakeObject<Interface>>(rig_, name);
    FakeObject<Interface>& result = *fake;
    fakes_.push_back(std::move(fake));
    return result;
  }
  /// Makes CoCreateInstance of the class return this object. The last call of Register or Missing for a
  /// class wins; a class with neither fails the test.
  void Register(const CLSID& clsid, FakeBase& fake) { classes_.push_back({clsid, &fake, S_OK}); }
  /// Makes CoCreateInstance of the class return `error`.
  void Missing(const CLSID& clsid, HRESULT error = REGDB_E_CLASSNOTREG) {
    classes_.push_back({clsid, nullptr, error});
  }
  /// Shows each Release in the trace too, for the fakes made so far.
  void ShowReleases();
  /// Allocates a system string that the library must free.
  BSTR GiveString(std::wstring_view text);

  /// The result of CoInitializeEx. After a success CoUninitialize must follow, after a failure it must not.
  HRESULT start = S_OK;

 private:
  /// The result of CoCreateInstance for one class.
  struct Class {
    CLSID clsid;
    FakeBase* fake;
    HRESULT error;
  };
  /// Answers CoCreateInstance.
  HRESULT Create(const CLSID& clsid, IUnknown* outer, const IID& iid, void** out);

  Rig& rig_;
  std::vector<Class> classes_;
  std::vector<std::unique_ptr<FakeBase>> fakes_;
};

}  // namespace rig
