// The library's image in this process: loads hxinternals.dll, an image of Windows with counters of its edges,
// and binds its imports to the answers. Used by main.cpp and by the targets.
#pragma once

/// One answer: a function with the calling convention of Windows.
struct Answer {
  const char* name;  ///< the imported name; for an ordinal of msi.dll the documented name
  void* function;    ///< the answer
};

/// A row of answers: the documented function `name` is answered by `function`, which must have the same
/// signature.
#define ANSWER(name, function) {#name, reinterpret_cast<void*>(static_cast<decltype(&::name)>(function))}

/// Registers answers before main. One static object for each file of answers.
class Answers {
 public:
  /// Adds `answers`; a name must not be added twice.
  Answers(std::initializer_list<Answer> answers);
};

/// Returns the answer called `name`, or null.
void* FindAnswer(const std::string& name);

/// Loads the image `file` and reports its counters to the fuzzer; ends the process with a message if it
/// cannot.
void LoadImage(const char* file);

/// Gives the image's data the state that it had after loading. Called before each run, so that no run can
/// depend on another one.
void ResetImage();

/// Returns the export `name`; ends the process if it is missing.
void* FindExport(const char* name);

/// An operation that the image exports, found when it is first called.
template <typename Signature>
class Operation;
/// The same, for a signature that is taken apart.
template <typename Result, typename... Arguments>
class Operation<Result(Arguments...)> {
 public:
  /// Declares the export `name`.
  explicit constexpr Operation(const char* name) : name_(name) {}
  /// Calls it.
  Result operator()(Arguments... arguments) {
    if (!function_) function_ = reinterpret_cast<ImageFunction<Result(Arguments...)>>(FindExport(name_));
    return function_(arguments...);
  }

 private:
  const char* name_;
  ImageFunction<Result(Arguments...)> function_ = nullptr;
};

/// Declares `Call_NAME`, the image's operation NAME, whose signature a header of src/ declares.
#define OPERATION(name) constinit Operation<decltype(::name)> call##name(#name)
