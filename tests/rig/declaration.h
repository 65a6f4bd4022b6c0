// Declares one function to the rig: how it fails, what it acquires and releases, how its call reads in the
// trace. Used by tables/ (one line per function) and by the fakes of COM objects.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace rig {

/// A kind of resource, identified by its address. Its name is in the trace ("key#1") and in the ledger's
/// complaints.
struct Kind {
  const char* name;  ///< Its name in the trace.
};

/// A block of the process heap.
inline constexpr Kind kBlock{"block"};
/// What LocalFree frees.
inline constexpr Kind kLocalMemory{"local-memory"};
/// What CoTaskMemFree frees.
inline constexpr Kind kTaskMemory{"task-memory"};
/// What NetApiBufferFree frees.
inline constexpr Kind kNetBuffer{"net-buffer"};
/// What LsaClose closes.
inline constexpr Kind kPolicy{"policy"};
/// What DsUnBindW unbinds.
inline constexpr Kind kDirectory{"directory"};
/// What DsFreeSpnArrayW frees.
inline constexpr Kind kPrincipalNames{"principal-names"};
/// What WTSFreeMemory frees.
inline constexpr Kind kSessionMemory{"session-memory"};
/// What SysFreeString frees.
inline constexpr Kind kSystemString{"string"};
/// What FreeLibrary frees.
inline constexpr Kind kModule{"module"};
/// What MsiCloseHandle closes.
inline constexpr Kind kRecord{"record"};
/// What RegCloseKey closes.
inline constexpr Kind kKey{"key"};
/// What CloseHandle closes.
inline constexpr Kind kHandle{"handle"};
/// What FindClose closes.
inline constexpr Kind kSearch{"search"};
/// What CloseServiceHandle closes.
inline constexpr Kind kService{"service"};
/// A reference to a COM object.
inline constexpr Kind kInterface{"interface"};
/// A start of COM, which CoUninitialize ends.
inline constexpr Kind kComStart{"com-start"};

/// The place of a function's resource in a call.
struct Place {
  /// What the index counts.
  enum class Where : uint8_t {
    kArgument,  ///< The argument's own value.
    kPointee,   ///< What the argument points to.
    kResult,    ///< The result.
  };
  Where where;  ///< What the index counts.
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

/// How a function fails when the sweep makes it fail, which also says which results mean success.
struct Failing {
  /// Which results mean success.
  enum class Success : uint8_t {
    kOtherThanFailing,  ///< Every result but the failing one.
    kZero,              ///< Result 0 (functions that return their error code).
    kNotNegative,       ///< Results from 0 up (HRESULT, NTSTATUS).
    kAlways,            ///< The function cannot fail.
  };
  Success success = Success::kAlways;  ///< Which results mean success.
  uint64_t result = 0;                 ///< The failing result's bits.
  bool setsLastError = false;          ///< Failing sets the last error.
  DWORD lastError = 0;                 ///< The last error that it sets.
};

/// The failing result as the bits of any integer or pointer.
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

/// Fails by returning `result`, leaving the last error as it was.
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
/// Cannot fail in any way that its caller could see; the sweep passes over it.
inline constexpr Failing kCannotFail{};

/// A function's declaration. The setters return the declaration, so that they can follow HX_FUNCTION in one
/// line; places count the arguments from 0.
class Declaration {
 public:
  /// A resource that the function acquires, uses or releases.
  struct Resource {
    const Kind* kind;  ///< What it is.
    Place place;       ///< Its place in the call.
  };
  /// An argument whose length another argument gives.
  struct Counted {
    int data;   ///< The argument's number.
    int count;  ///< The number of the one that counts.
    bool text;  ///< It is text, not bytes.
  };

  /// A function `name` of `module` that the library reaches through `thunk`.
  Declaration(std::string module, std::string name, Failing failing, const void* thunk);

  /// Its number in the module's export table, for modules imported by ordinal.
  Declaration& Ordinal(WORD ordinal);
  /// Kept out of the trace unless a test asks for it.
  Declaration& Quiet();
  /// The real function is called if nobody answers.
  Declaration& RealByDefault();
  /// A function of its arguments and of the machine's locale only: quiet and real.
  Declaration& Pure() { return Quiet().RealByDefault(); }
  /// The import slot keeps the real function; the rig does not see the calls.
  Declaration& Untouched();
  /// Not exported by today's systems: GetProcAddress does not find it unless a test provides it.
  Declaration& AbsentByDefault();
  /// On success the caller owns a new resource.
  Declaration& Acquires(const Kind& kind, Place place);
  /// On success the function frees a resource.
  Declaration& Releases(const Kind& kind, Place place);
  /// The argument must be a live resource of this kind.
  Declaration& Uses(const Kind& kind, Place place);
  /// Argument 0 must be the installer session.
  Declaration& Session();
  /// The argument is printed in hexadecimal.
  Declaration& Hex(Place place);
  /// Argument `data` is text of as many units as argument `count` says (-1: up to its terminator).
  Declaration& CountedText(Place data, Place count);
  /// Argument `data` is printed as the bytes that it points to, as many as argument `count` says.
  Declaration& CountedBytes(Place data, Place count);
  /// Non-const wide pointers are texts that come in (system strings), not buffers.
  Declaration& TextArguments();
  /// The function stores a resource through this argument, like Acquires(kind, Out<N>), but books it itself.
  /// If the function fails, rubbish is stored through the arguments of both.
  Declaration& HandsOut(Place place);

  /// The module in capitals, without ".DLL".
  const std::string& Module() const { return module_; }
  /// The exported name.
  const std::string& Name() const { return name_; }
  /// The export number; 0 for a function imported by name.
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
  /// What it acquires on success.
  const std::vector<Resource>& Acquired() const { return acquired_; }
  /// What it releases on success.
  const std::vector<Resource>& Released() const { return released_; }
  /// What must be alive when it is called.
  const std::vector<Resource>& Used() const { return used_; }
  /// The arguments through which it stores resources; see HandsOut.
  const std::vector<int>& HandedOut() const { return handedOut_; }
  /// The counting rule of argument `index`, or null.
  const Counted* CountOf(size_t index) const;
  /// The resource kind of argument `index` (released or used), or null.
  const Kind* KindOf(size_t index) const;
  /// The address that the library gets from its import slot or from GetProcAddress.
  const void* Thunk() const { return thunk_; }
  /// The real function; null if the system does not have it.
  void* Real() const;
  /// True if this result means success.
  bool Succeeded(uint64_t result) const;

  /// What a test said about this function; every rig starts with kAsDeclared.
  enum class Behaviour : uint8_t {
    kAsDeclared,  ///< Nothing.
    kReal,        ///< The real function is called.
    kAnswered,    ///< A test or the world answers.
  };
  /// What a test said about this function.
  Behaviour behaviour = Behaviour::kAsDeclared;
  /// Written to the trace although quiet.
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

/// Adds one; the tables do it before main.
Declaration& Add(Declaration* declaration);
/// The function of a module ("KERNEL32", "kernel32.dll", with or without a folder), or null.
Declaration* Find(std::string_view module, std::string_view name);
/// The function with this export number, or null.
Declaration* Find(std::string_view module, WORD ordinal);
/// True if a function of the module is declared.
bool HasModule(std::string_view module);
/// The first function of this name. Throws std::invalid_argument if there is none.
Declaration& Named(std::string_view name);
/// Resets every behaviour to kAsDeclared and makes every function quiet again.
void Reset();
/// "C:\Windows\kernel32.dll" -> "KERNEL32".
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
