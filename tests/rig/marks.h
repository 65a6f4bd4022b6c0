// Marks the stretches of a program whose instructions are counted (tools/counting/count.c). Used by the
// benchmarks and by the rig. A mark is an instruction that does nothing on a processor. Only ARM64 programs
// have marks.
#pragma once

#include <windows.h>

#include <string>

namespace rig {

/// The marks; each number is that of its instruction.
enum class Mark : unsigned char {
  kBegin = 112,  ///< The instructions from here on are counted.
  kEnd,          ///< Those from here on are not.
  kZero,         ///< A bit with the value 0 for what counts.
  kOne,          ///< A bit with the value 1.
  kImage,        ///< The 16 bytes sent are the first and the last address of an image.
  kWrite,        ///< The bytes sent are the name of what was counted.
};

/// Returns true if the program's instructions are being counted: the variable HX_COUNT is set.
inline bool IsCounted() {
  static const bool isCounted = GetEnvironmentVariableA("HX_COUNT", nullptr, 0) != 0;
  return isCounted;
}

/// Executes a mark.
template <Mark mark>
inline void SetMark() {
#ifdef __aarch64__
  asm volatile("hint %0" : : "i"(static_cast<int>(mark)) : "memory");
#endif
}

/// Sends `size` bytes to what counts.
inline void SendToCounter(const void* data, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  for (size_t bit = 0; bit < size * 8; ++bit) {
    if (bytes[bit / 8] >> bit % 8 & 1) {
      SetMark<Mark::kOne>();
    } else {
      SetMark<Mark::kZero>();
    }
  }
}

/// Names the image whose instructions are counted as "own" from now on: a loaded library or program.
inline void MarkImage(HMODULE module) {
  const auto first = reinterpret_cast<ULONG_PTR>(module);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      first + static_cast<ULONG_PTR>(reinterpret_cast<const IMAGE_DOS_HEADER*>(module)->e_lfanew));
  const ULONG_PTR range[] = {first, first + headers->OptionalHeader.SizeOfImage - 1};
  SendToCounter(range, sizeof range);
  SetMark<Mark::kImage>();
}

/// Counts from here to MarkEnd.
inline void MarkBegin() {
  SetMark<Mark::kBegin>();
}

/// Ends what MarkBegin began.
inline void MarkEnd() {
  SetMark<Mark::kEnd>();
}

/// Writes the sum of all counts since the last MarkWrite under a name, which has at most 1000 bytes and no
/// line end.
inline void MarkWrite(const std::string& name) {
  SendToCounter(name.data(), name.size());
  SetMark<Mark::kWrite>();
}

}  // namespace rig
