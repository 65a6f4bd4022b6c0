# Builds for one processor: hxsetup.dll (the product), hxinternals.dll (the same objects with every operation exported,
# for the unit tests) and rigsubject.dll (the subject of the test rig's own tests).

option(HX_CHECKED "Trap on undefined behaviour" OFF)
option(HX_COVERAGE "Count what runs, for ./hx coverage" OFF)
option(HX_FUZZ "Check addresses and count edges, for the fuzzer" OFF)

find_program(HX_DLLTOOL NAMES llvm-dlltool-19 REQUIRED)
find_program(HX_RC NAMES llvm-rc-19 REQUIRED)

if(HX_PROCESSOR STREQUAL "arm64")
  set(machine arm64)
else()
  set(machine i386:x86-64)
endif()

# ---- import libraries
# hx_import_libraries(RESULT FOLDER): makes an import library from each list of functions in FOLDER; sets RESULT to
# their paths.
function(hx_import_libraries result folder)
  file(GLOB lists CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.def)
  set(libraries)
  foreach(list ${lists})
    get_filename_component(name ${list} NAME_WE)
    set(library ${CMAKE_BINARY_DIR}/${folder}/lib${name}.a)
    add_custom_command(
      OUTPUT ${library}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/${folder}
      COMMAND ${HX_DLLTOOL} -m ${machine} -d ${list} -l ${library}
      DEPENDS ${list} VERBATIM)
    list(APPEND libraries ${library})
  endforeach()
  set(${result} ${libraries} PARENT_SCOPE)
endfunction()

# The complete list of the Windows functions that the library imports.
hx_import_libraries(importLibraries src/imports)

# The functions of the address checks, which the fuzzer answers.
if(HX_FUZZ)
  hx_import_libraries(fuzzImports fuzz/image)
  list(APPEND importLibraries ${fuzzImports})
endif()
add_custom_target(imports DEPENDS ${importLibraries})

# ---- compiling the library
set(compileOptions
  -ffreestanding -fno-exceptions -fno-rtti -fno-threadsafe-statics -funwind-tables -fno-ident
  -ffunction-sections -fdata-sections -fstack-protector-strong -fms-extensions -mno-stack-arg-probe
  -g -gcodeview -gno-codeview-command-line
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -fdebug-compilation-dir=.
  -Xclang -cfguard
  -Wall -Wextra -Wpedantic -Wshadow -Wvla -Werror -Wframe-larger-than=3500 -Wno-language-extension-token
  -Wno-microsoft-cast -Wno-missing-designated-field-initializers -Wno-gnu-zero-variadic-macro-arguments)
# ARM64: return addresses are signed and checked, on processors that can. x64 has a shadow stack instead (-cetcompat
# below), on systems that keep one.
if(HX_PROCESSOR STREQUAL "arm64")
  list(APPEND compileOptions -mbranch-protection=standard)
endif()
# The fuzzer loads the image into a native process of Linux, so the shadow memory is where Linux has it. The linker's
# own sections for globals do not exist in such an image. The function of the ignore list reads after the end of a text on
# purpose, but never after the end of its page.
if(HX_FUZZ)
  set(fuzzIgnored ${CMAKE_SOURCE_DIR}/fuzz/image/ignored.txt)
  list(APPEND compileOptions -fsanitize=address -fsanitize-address-use-after-return=never
    "SHELL:-mllvm -asan-globals=0 -mllvm -asan-mapping-offset=0x7fff8000 -mllvm -asan-mapping-scale=3"
    -fsanitize-ignorelist=${fuzzIgnored} -fsanitize-coverage=inline-8bit-counters,pc-table -Wframe-larger-than=20000)
endif()
set(systemIncludes /usr/share/mingw-w64/include)
# These macros of system libraries (_ADVAPI32_, ...) stop the headers from declaring functions as dllimport. Calls then go
# through one jump per function, which on ARM64 is smaller than loading the address at each call.
set(definitions WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 __USE_MINGW_ANSI_STDIO=0
  _ADVAPI32_ _KERNEL32_ _OLE32_ _OLEAUT32_ _SHELL32_ _USER32_)
if(HX_CHECKED)
  list(APPEND compileOptions -fsanitize=undefined -fsanitize-trap=all -fno-sanitize=function,vptr)
endif()

# What counts how often each piece of the library runs. A test program adds up the counters (tests/rig/coverage.h).
set(coverageOptions)
set(coverageParts)
if(HX_COVERAGE)
  set(coverageOptions -fprofile-instr-generate -fcoverage-mapping -fcoverage-mcdc -fcoverage-compilation-dir=.)
  # Counting makes frames larger, but these libraries never ship.
  list(APPEND coverageOptions -Wno-frame-larger-than)
  set(coverageParts coverage-objects)
endif()

# Linker options of every image. The entry, the list of exports and the name are set for each image.
set(linkOptions
  -nostdlib -fuse-ld=lld-19 -Wl,--no-insert-timestamp -Wl,--gc-sections -Wl,-Xlink=-merge:.buildid=.rdata
  -Wl,--dynamicbase,--high-entropy-va,--nxcompat -Wl,--guard-cf -Wl,--disable-auto-import
  -Wl,-Xlink=-pdbsourcepath:C:/hxsetup)
if(HX_PROCESSOR STREQUAL "x64")
  list(APPEND linkOptions -Wl,-Xlink=-cetcompat)
endif()
if(HX_COVERAGE)
  # Nothing refers to the sections that describe the counters.
  list(APPEND linkOptions -Wl,--no-gc-sections)
endif()

file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/src/*/*.cpp)
set(runtimeSources ${sources})
list(FILTER runtimeSources INCLUDE REGEX "/src/runtime/")
list(FILTER sources EXCLUDE REGEX "/src/runtime/")

# Compiled with -Os, except the code that every text and every path passes through: that is compiled for speed.
set(hotSources)
foreach(file base/heap base/text format/format format/text_writer paths/path paths/path_text)
  list(APPEND hotSources ${CMAKE_SOURCE_DIR}/src/${file}.cpp)
endforeach()
set_source_files_properties(${hotSources} PROPERTIES COMPILE_OPTIONS -O2)

function(hx_objects target)
  add_library(${target} OBJECT ${ARGN})
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/src)
  target_include_directories(${target} SYSTEM PRIVATE ${systemIncludes})
  target_compile_definitions(${target} PRIVATE ${definitions})
  target_compile_options(${target} PRIVATE ${compileOptions} $<IF:$<BOOL:${HX_CHECKED}>,-O1,-Os>)
endfunction()

if(HX_FUZZ)
  list(APPEND runtimeSources ${CMAKE_SOURCE_DIR}/fuzz/image/sections.cpp)
endif()
hx_objects(runtime ${runtimeSources})
# The compiler must not turn the bodies of memcpy and similar functions into calls of themselves, nor vectorize them for
# large blocks. They have no stack protector, because they are part of its implementation.
target_compile_options(runtime PRIVATE -fno-builtin -fno-vectorize -fno-stack-protector)
hx_objects(objects ${sources})
target_compile_options(runtime PRIVATE ${coverageOptions})
target_compile_options(objects PRIVATE ${coverageOptions})
if(HX_COVERAGE)
  # Its functions are assembly: a counter would change registers that they must keep.
  set_source_files_properties(${CMAKE_SOURCE_DIR}/src/runtime/load_config.cpp PROPERTIES COMPILE_OPTIONS
    "-fno-profile-instr-generate;-fno-coverage-mapping;-fno-coverage-mcdc")
  hx_objects(coverage-objects ${CMAKE_SOURCE_DIR}/tests/coverage/profile_runtime.cpp)
endif()

# ---- version resource
set(versionResource ${CMAKE_BINARY_DIR}/version.res)
string(REPLACE "." "," versionNumbers ${PROJECT_VERSION})
# Paths are relative to the source, because the resource compiler reads an absolute path such as /check/... as its
# option /c.
file(RELATIVE_PATH versionOutput ${CMAKE_SOURCE_DIR}/src/runtime ${versionResource})
add_custom_command(
  OUTPUT ${versionResource}
  COMMAND ${HX_RC} /nologo /D HX_VERSION_NUMBERS=${versionNumbers},0 /D HX_VERSION_TEXT=\"${PROJECT_VERSION}\"
          /FO ${versionOutput} version.rc
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/src/runtime
  DEPENDS ${CMAKE_SOURCE_DIR}/src/runtime/version.rc VERBATIM)

# What links a library whose constants end before pages that the test rig makes unreadable. The pages in the file begin where
# pages of memory can begin, so that loading copies nothing.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(guardConstants ${CMAKE_SOURCE_DIR}/tools/images/guarded_constants.py)
function(hx_guard_constants target)
  set_target_properties(${target} PROPERTIES RULE_LAUNCH_LINK "${Python3_EXECUTABLE} ${guardConstants}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${guardConstants})
  target_link_options(${target} PRIVATE -Wl,-Xlink=-filealign:4096)
endfunction()

# hx_library(NAME OBJECT_TARGETS... OPTIONS link options and inputs...)
function(hx_library target)
  cmake_parse_arguments(arg "" "" "OBJECTS;INPUTS" ${ARGN})
  add_library(${target} SHARED)
  foreach(part ${arg_OBJECTS})
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${part}>)
  endforeach()
  add_dependencies(${target} imports)
  set_target_properties(${target} PROPERTIES PREFIX "" IMPORT_PREFIX "" LINKER_LANGUAGE CXX
    LINK_DEPENDS "${importLibraries};${arg_INPUTS}")
  target_link_options(${target} PRIVATE ${linkOptions} -shared -Wl,--entry,DllMain -Wl,--pdb=${target}.pdb
    -Wl,-Xlink=-pdbaltpath:${target}.pdb)
  target_link_libraries(${target} PRIVATE ${arg_INPUTS} ${importLibraries})
endfunction()

set(CMAKE_CXX_STANDARD_LIBRARIES "")
set(CMAKE_CXX_CREATE_SHARED_LIBRARY
  "<CMAKE_CXX_COMPILER> --target=${CMAKE_CXX_COMPILER_TARGET} <LINK_FLAGS> -o <TARGET> <OBJECTS> <LINK_LIBRARIES>")

add_custom_target(version DEPENDS ${versionResource})
# The linker records the paths of its inputs in the PDB. Links a copy, whose path is the same wherever the project is.
configure_file(${CMAKE_SOURCE_DIR}/src/frame/entry_points.def ${CMAKE_BINARY_DIR}/entry_points.def COPYONLY)
hx_library(hxsetup OBJECTS runtime objects ${coverageParts} INPUTS ${versionResource} ${CMAKE_BINARY_DIR}/entry_points.def)
add_dependencies(hxsetup version)
hx_library(hxinternals OBJECTS runtime objects ${coverageParts})
target_link_options(hxinternals PRIVATE -Wl,--export-all-symbols)
# Only on x64: loading takes longer, which costs much under emulation, and the constants are the same.
if(HX_CHECKED AND HX_PROCESSOR STREQUAL "x64")
  hx_guard_constants(hxsetup)
  hx_guard_constants(hxinternals)
endif()

file(GLOB subjectSources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/rig-subject/*.cpp)
if(subjectSources)
  hx_objects(subject ${subjectSources})
  hx_library(rigsubject OBJECTS runtime subject ${coverageParts})
  target_link_options(rigsubject PRIVATE -Wl,--export-all-symbols)
  hx_guard_constants(rigsubject)
endif()

# An empty library, with which the benchmarks compare the loading of the real one.
hx_objects(empty-objects ${CMAKE_SOURCE_DIR}/bench/empty/empty.cpp)
hx_library(empty OBJECTS runtime empty-objects ${coverageParts})
set_target_properties(empty-objects empty PROPERTIES EXCLUDE_FROM_ALL ON)

# The stand-ins that the packages install for the programs of client and server and for the tracking library; and the
# witness, a library whose actions report the state inside the installer's own process.
if(NOT HX_CHECKED AND NOT HX_COVERAGE)
  hx_import_libraries(agentImports packages/programs/imports)
  add_custom_target(agent-imports DEPENDS ${agentImports})
  hx_objects(agent-objects ${CMAKE_SOURCE_DIR}/packages/programs/agent.cpp)
  set(CMAKE_CXX_LINK_EXECUTABLE
    "<CMAKE_CXX_COMPILER> --target=${CMAKE_CXX_COMPILER_TARGET} <LINK_FLAGS> -o <TARGET> <OBJECTS> <LINK_LIBRARIES>")
  # The version texts that the firewall reads from a program.
  set(agentResource ${CMAKE_BINARY_DIR}/agent.res)
  file(RELATIVE_PATH agentOutput ${CMAKE_SOURCE_DIR}/packages/programs ${agentResource})
  add_custom_command(
    OUTPUT ${agentResource}
    COMMAND ${HX_RC} /nologo /FO ${agentOutput} agent.rc
    WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/packages/programs
    DEPENDS ${CMAKE_SOURCE_DIR}/packages/programs/agent.rc VERBATIM)
  add_custom_target(agent-resource DEPENDS ${agentResource})
  add_executable(agent $<TARGET_OBJECTS:agent-objects> $<TARGET_OBJECTS:runtime>)
  add_dependencies(agent agent-imports agent-resource)
  set_target_properties(agent PROPERTIES LINKER_LANGUAGE CXX LINK_DEPENDS "${agentImports};${agentResource}")
  target_link_options(agent PRIVATE ${linkOptions} -Wl,--entry,Main -Wl,--subsystem,windows)
  target_link_libraries(agent PRIVATE ${agentResource} ${agentImports})

  # hx_stand_in(NAME SOURCE IMPORTS): builds a library that the packages contain.
  function(hx_stand_in name source imports)
    hx_objects(${name}-objects ${CMAKE_SOURCE_DIR}/${source})
    add_library(${name} SHARED $<TARGET_OBJECTS:${name}-objects> $<TARGET_OBJECTS:runtime>)
    add_dependencies(${name} ${name}-imports)
    set_target_properties(${name} PROPERTIES PREFIX "" IMPORT_PREFIX "" LINKER_LANGUAGE CXX
      LINK_DEPENDS "${imports}")
    target_link_options(${name} PRIVATE ${linkOptions} -shared -Wl,--entry,DllMain)
    target_link_libraries(${name} PRIVATE ${imports})
  endfunction()

  # The program that runs the validation actions of packages. They run on x64 only.
  if(HX_PROCESSOR STREQUAL "x64")
    hx_import_libraries(icesImports tools/packages/ices/imports)
    add_custom_target(ices-imports DEPENDS ${icesImports})
    hx_objects(ices-objects ${CMAKE_SOURCE_DIR}/tools/packages/ices/ices.cpp)
    add_executable(ices $<TARGET_OBJECTS:ices-objects> $<TARGET_OBJECTS:runtime>)
    add_dependencies(ices ices-imports)
    set_target_properties(ices PROPERTIES LINKER_LANGUAGE CXX LINK_DEPENDS "${icesImports}")
    target_link_options(ices PRIVATE ${linkOptions} -Wl,--entry,Main -Wl,--subsystem,console)
    target_link_libraries(ices PRIVATE ${icesImports})
  endif()

  hx_import_libraries(witnessImports packages/witness/imports)
  add_custom_target(witness-imports DEPENDS ${witnessImports})
  hx_stand_in(witness packages/witness/witness.cpp "${witnessImports}")
  add_custom_target(ostrack-imports DEPENDS ${agentImports})
  hx_stand_in(ostrack packages/programs/tracking.cpp "${agentImports}")
endif()
