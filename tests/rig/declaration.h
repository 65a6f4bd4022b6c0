// Declares one function to the rig: how it fails, what it acquires and releases, how the trace shows its
// calls. Used by tables/ (one line per function) and by the fakes of COM objects.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace rig {

/// A kind of resource, identified by this object's address. The trace and the failures of the ledger show
/// its name ("key#1").
struct Kind {
  const char* name;  ///< Its name in the trace.
};

/// A block of the process heap.
inline constexpr Kind kBlock{"block"};
/// Memory that LocalFree frees.
inline constexpr Kind kLocalMemory{"local-memory"};
/// Memory that CoTaskMemFree frees.
inline constexpr Kind kTaskMemory{"task-memory"};
/// Memory that NetApiBufferFree frees.
inline constexpr Kind kNetBuffer{"net-buffer"};
/// A handle that LsaClose closes.
inline constexpr Kind kPolicy{"policy"};
/// A handle that DsUnBindW unbinds.
inline constexpr Kind kDirectory{"directory"};
/// An array that DsFreeSpnArrayW frees.
inline constexpr Kind kPrincipalNames{"principal-names"};
/// Memory that WTSFreeMemory frees.
inline constexpr Kind kSessionMemory{"session-memory"};
/// A string that SysFreeString frees.
inline constexpr Kind kSystemString{"string"};
/// A module that FreeLibrary frees.
inline constexpr Kind kModule{"module"};
/// A handle that MsiCloseHandle closes.
inline constexpr Kind kRecord{"record"};
/// A key that RegCloseKey closes.
inline constexpr Kind kKey{"key"};
/// A handle that CloseHandle closes.
inline constexpr Kind kHandle{"handle"};
/// A search handle that FindClose closes.
inline constexpr Kind kSearch{"search"};
/// A handle that CloseServiceHandle closes.
inline constexpr Kind kService{"service"};
/// A reference to a COM object.
inline constexpr Kind kInterface{"interface"};
/// An initialisation of COM, which CoUninitialize ends.
inline constexpr Kind kComStart{"com-start"};

/// The place of a resource in a call.
struct Place {
  /// What `index` refers to.
  enum class Where : uint8_t {
    kArgument,  ///< The value of the argument.
    kPointee,   ///< The value that the argument points to.
    kResult,    ///< The result.
  };
  Where where;  ///< What `index` refers to.
  int index;    ///< The argument's number; -1 for the result.
};

/// The value of argument N (from 0).
template <int N>
inline constexpr Place Arg{Place::Where::kArgument, N};
/// The value that the function stores through argument N.
template <int N>
inline constexpr Place Out{Place::Where::kPointee, N};
/// The function's result.
inline constexpr Place kResult{Place::Where::kResult, -1};

/// How a function fails when the sweep makes it fail. It also says which results mean success.
struct Failing {
  /// Which results mean success.
  enum class Success : uint8_t {
    kOtherThanFailing,  ///< Every result except the failing one.
    kZero,              ///< Result 0 (functions that return their error code).
    kNotNegative,       ///< Results from 0 upwards (HRESULT, NTSTATUS).
    kAlways,            ///< The function cannot fail.
  };
  Success success = Success::kAlways;  ///< Which results mean success.
  uint64_t result = 0;                 ///< The bits of the failing result.
  bool setsLastError = false;          ///< A failure sets the last error.
  DWORD lastError = 0;                 ///< The last error that it sets.
};

/// Returns the failing result, an integer or a pointer, as bits.
template <class T>
constexpr uint64_t ResultBits(T value) {
  if constexpr (std::is_null_pointer_v<T>) {
    return 0;
  } else if constexpr (std::is_pointer_v<T>) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(value));
  } else {
    return static_cast<uint64_t>(static_cast<int64_t>(value));
  }
}

/// Fails by returning `result`; the last error stays unchanged.
template <class T>
Failing Returns(T result) {
  return {Failing::Success::kOtherThanFailing, ResultBits(result), false, 0};
}
/// Fails by returning `result` with the last error set to `error`.
template <class T>
Failing FailsWith(T result, DWORD error) {
  return {Failing::Success::kOtherThanFailing, ResultBits(result), true, error};
}
/// Fails by returning its error: a Windows error code, an HRESULT or an NTSTATUS.
template <class T>
Failing FailsAs(T code) {
  bool negative = static_cast<int32_t>(code) < 0;
  return {negative ? Failing::Success::kNotNegative : Failing::Success::kZero, ResultBits(code), false, 0};
}
/// Cannot fail in a way that its caller could see; the sweep skips it.
inline constexpr Failing kCannotFail{};

/// The declaration of a function. The setters return the declaration, so that they can follow HX_FUNCTION in
/// one line. Places count the arguments from 0.
class Declaration {
 public:
  /// A resource that the function acquires, uses or releases.
  struct Resource {
    const Kind* kind;  ///< What it is.
    Place place;       ///< Its place in the call.
  };
  /// An argument whose length is in another argument.
  struct Counted {
    int data;   ///< The argument's number.
    int count;  ///< The number of the argument with the length.
    bool text;  ///< True for text, false for bytes.
  };

  /// Declares the function `name` of `module`; the library reaches it through `thunk`.
  Declaration(std::string module, std::string name, Failing failing, const void* thunk);

  /// Sets the function's number in the module's export table, for modules imported by ordinal.
  Declaration& Ordinal(WORD ordinal);
  /// Keeps the calls out of the trace unless a test asks for them.
  Declaration& Quiet();
  /// Calls the real function if nobody answers.
  Declaration& RealByDefault();
  /// Declares that the function depends only on its arguments and on the machine's locale: quiet and real.
  Declaration& Pure() { return Quiet().RealByDefault(); }
  /// Leaves the real function in the import slot; the rig does not see the calls.
  Declaration& Untouched();
  /// Declares that today's systems do not export the function. GetProcAddress does not find it unless a test
  /// provides it.
  Declaration& AbsentByDefault();
  /// Declares that the caller owns a new resource on success.
  Declaration& Acquires(const Kind& kind, Place place);
  /// Declares that the function frees a resource on success.
  Declaration& Releases(const Kind& kind, Place place);
  /// Requires the argument to be a live resource of this kind.
  Declaration& Uses(const Kind& kind, Place place);
  /// Requires argument 0 to be the installer session.
  Declaration& Session();
  /// Prints the argument in hexadecimal.
  Declaration& Hex(Place place);
  /// Prints argument `data` as text of as many units as argument `count` says (-1: up to the terminator).
  Declaration& CountedText(Place data, Place count);
  /// Prints the bytes that argument `data` points to, as many as argument `count` says.
  Declaration& CountedBytes(Place data, Place count);
  /// Treats non-const wide pointers as input texts (system strings), not as buffers.
  Declaration& TextArguments();
  /// Declares that the function stores a resource through this argument, like Acquires(kind, Out<N>), but
  /// records it in the ledger itself. If the function fails, rubbish is stored through the arguments of
  /// both.
  Declaration& HandsOut(Place place);

  /// The module's name in capitals, without ".DLL".
  const std::string& Module() const { return module_; }
  /// The exported name.
  const std::string& Name() const { return name_; }
  /// The ordinal; 0 for a function imported by name.
  WORD GetOrdinal() const { return ordinal_; }
  /// How the function fails.
  const Failing& HowItFails() const { return failing_; }
  /// True if the function can fail.
  bool CanFail() const { return failing_.success != Failing::Success::kAlways; }
  /// See Quiet.
  bool IsQuiet() const { return quiet_; }
  /// See RealByDefault.
  bool IsRealByDefault() const { return real_; }
  /// See Untouched.
  bool IsUntouched() const { return untouched_; }
  /// See AbsentByDefault.
  bool IsAbsentByDefault() const { return absent_; }
  /// See TextArguments.
  bool HasTextArguments() const { return textArguments_; }
  /// See Session.
  bool TakesSession() const { return session_; }
  /// See Hex.
  bool IsHex(size_t index) const { return (hex_ >> index & 1) != 0; }
  /// The resources that it acquires on success.
  const std::vector<Resource>& Acquired() const { return acquired_; }
  /// The resources that it releases on success.
  const std::vector<Resource>& Released() const { return released_; }
  /// The resources that must be alive when it is called.
  const std::vector<Resource>& Used() const { return used_; }
  /// The arguments through which it stores resources; see HandsOut.
  const std::vector<int>& HandedOut() const { return handedOut_; }
  /// Returns the length rule of argument `index`, or null.
  const Counted* CountOf(size_t index) const;
  /// Returns the resource kind of argument `index` (released or used), or null.
  const Kind* KindOf(size_t index) const;
  /// The address that the library gets from its import slot or from GetProcAddress.
  const void* Thunk() const { return thunk_; }
  /// Returns the real function; null if the system does not have it.
  void* Real() const;
  /// True if this result means success.
  bool Succeeded(uint64_t result) const;

  /// How calls are answered, as a test or the world sets it; every rig starts with kAsDeclared.
  enum class Behaviour : uint8_t {
    kAsDeclared,  ///< As the declaration says.
    kReal,        ///< The real function is called.
    kAnswered,    ///< A test or the world answers.
  };
  /// How calls are answered.
  Behaviour behaviour = Behaviour::kAsDeclared;
  /// True if a test asked for the calls of a quiet function in the trace.
  bool loud = false;

 private:
  std::string module_;
  std::string name_;
  WORD ordinal_ = 0;
  Failing failing_;
  const void* thunk_;
  bool quiet_ = false;
  bool real_ = false;
  bool untouched_ = false;
  bool absent_ = false;
  bool session_ = false;
  bool textArguments_ = false;
  uint32_t hex_ = 0;
  std::vector<Resource> acquired_;
  std::vector<Resource> released_;
  std::vector<Resource> used_;
  std::vector<Counted> counted_;
  std::vector<int> handedOut_;
  mutable void* realFunction_ = nullptr;
};

/// All declarations of the tables.
namespace declarations {

/// Adds a declaration; the tables call this before main.
Declaration& Add(Declaration* declaration);
/// Returns the function of a module ("KERNEL32", "kernel32.dll", with or without a folder), or null.
Declaration* Find(std::string_view module, std::string_view name);
/// Returns the function with this ordinal, or null.
Declaration* Find(std::string_view module, WORD ordinal);
/// True if any function of the module is declared.
bool HasModule(std::string_view module);
/// Calls `visit` for every declaration.
void ForEach(const std::function<void(const Declaration&)>& visit);
/// Returns the first function of this name. Throws std::invalid_argument if there is none.
Declaration& Named(std::string_view name);
/// Resets every behaviour to kAsDeclared and every `loud` to false.
void Reset();
/// Returns the module's name: "C:\Windows\kernel32.dll" -> "KERNEL32".
std::string ModuleName(std::string_view path);

/// Hides a declaration for as long as it lives, as if its line were missing.
class Hidden {
 public:
  /// Hides the function of this name.
  explicit Hidden(std::string_view name);
  ~Hidden();
  Hidden(const Hidden&) = delete;
  Hidden& operator=(const Hidden&) = delete;

 private:
  Declaration* hidden_;
};

}  // namespace declarations
}  // namespace rig
