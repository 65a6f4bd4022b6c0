# Toolchain of the library: clang and lld for Windows on HX_PROCESSOR, without any runtime library.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HX_PROCESSOR)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(HX_PROCESSOR STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR ARM64)
  set(hxTriple aarch64-w64-windows-gnu)
else()
  set(CMAKE_SYSTEM_PROCESSOR AMD64)
  set(hxTriple x86_64-w64-windows-gnu)
endif()

set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_CXX_COMPILER_TARGET ${hxTriple})
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
