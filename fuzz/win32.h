// The headers of Windows in a native program of Linux: the same structures and signatures as in the image,
// whose functions use the calling convention of Windows. Included before everything else in every file.
#pragma once

// The headers of the C and C++ libraries come first: the macros below would change them.
#include <immintrin.h>
#include <mm_malloc.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

// The C headers of Windows declare these types and functions again, for a C library that is not here.
#define _INC_CTYPE
#define _INC_EXCPT
#define _INC_STDIO
#define _INC_STDLIB
#define _INC_STRING
#define _INC_WCHAR
#define __STRALIGN_H_
#define _SIZE_T_DEFINED
#define _SSIZE_T_DEFINED
#define _TIME_T_DEFINED
#define _UINTPTR_T_DEFINED
#define _WCHAR_T_DEFINED
using EXCEPTION_DISPOSITION = int;

#define __MSVCRT__ 1
#define __int64 long
#define _AMD64_ 1
#define _M_X64 1
#define _WIN32 1
#define _WIN64 1
#define NOMINMAX
#define WIN32_LEAN_AND_MEAN
#include <_mingw.h>
// The headers take this compiler for one of another system, whose own convention is that of Windows.
#undef __cdecl
#undef __stdcall
#define __cdecl
#define __stdcall __attribute__((ms_abi))
#include <windows.h>

/// The pointer to a function of the image: `Signature` with the calling convention of Windows.
template <typename Signature>
struct ImageFunctionOf;
/// The same, for a signature that is taken apart.
template <typename Result, typename... Arguments>
struct ImageFunctionOf<Result(Arguments...)> {
  using Type = Result(__attribute__((ms_abi)) *)(Arguments...);  ///< the pointer
};
/// The pointer to a function of the image with the signature of `Function`.
template <typename Signature>
using ImageFunction = typename ImageFunctionOf<Signature>::Type;

/// The calling convention of the image's own functions.
#define IMAGE_ABI __attribute__((ms_abi))
