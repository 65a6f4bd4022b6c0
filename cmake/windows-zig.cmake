# Toolchain of the tests and benchmarks: zig c++ for Windows on HX_PROCESSOR, which includes a C++ standard library.
# HX_TEST_TOOLS is the folder that ./hx made for the processor; it has the compiler command "cxx" and the compiled
# GoogleTest.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES HX_PROCESSOR HX_TEST_TOOLS)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(HX_PROCESSOR STREQUAL "arm64")
  set(CMAKE_SYSTEM_PROCESSOR ARM64)
else()
  set(CMAKE_SYSTEM_PROCESSOR AMD64)
endif()

set(CMAKE_CXX_COMPILER ${HX_TEST_TOOLS}/cxx)
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
