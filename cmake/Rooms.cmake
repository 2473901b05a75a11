# SPDX-License-Identifier: Apache-2.0
#
# What every room is built with, and the functions that declare a room, its tests and a program.

find_package(Threads REQUIRED)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(bootweave_build_flags INTERFACE)
target_compile_definitions(bootweave_build_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
target_compile_options(bootweave_build_flags INTERFACE
  -Wall -Wextra -Wpedantic $<$<BOOL:${BOOTWEAVE_WERROR}>:-Werror>
  -Wshadow -Wformat=2 -Wconversion -Wsign-conversion
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Woverloaded-virtual -Wnon-virtual-dtor -Wextra-semi>
  -fstack-protector-strong -fstack-clash-protection -ffunction-sections -fdata-sections)
target_link_options(bootweave_build_flags INTERFACE -Wl,--gc-sections -Wl,-z,relro,-z,now)
# Branches may only end where the compiler says so, on processors that check it.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  target_compile_options(bootweave_build_flags INTERFACE -fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
  target_compile_options(bootweave_build_flags INTERFACE -mbranch-protection=standard)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(bootweave_build_flags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety -Wthread-safety-beta>)
endif()
if(BOOTWEAVE_SANITIZE)
  target_compile_options(bootweave_build_flags INTERFACE
    -fsanitize=${BOOTWEAVE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(bootweave_build_flags INTERFACE -fsanitize=${BOOTWEAVE_SANITIZE})
else()
  target_compile_definitions(bootweave_build_flags INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=3> _GLIBCXX_ASSERTIONS)
endif()
if(BOOTWEAVE_COVERAGE)
  # Threads and children count at the same time. What ends a process without a word writes its counts first.
  add_library(bootweave_coverage STATIC tests/support/coverage.cpp)
  target_compile_options(bootweave_build_flags INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(bootweave_build_flags INTERFACE
    --coverage -Wl,--wrap=_exit,--wrap=execve,--wrap=execv)
  target_link_libraries(bootweave_build_flags INTERFACE bootweave_coverage)
endif()

if(BOOTWEAVE_FUZZ)
  target_compile_options(bootweave_build_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# bootweave_room(NAME SOURCES file... USES room...)
# One library for the folder it is called in. Headers are included by their path from the root.
function(bootweave_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(bootweave_${name} STATIC ${ARG_SOURCES})
  target_include_directories(bootweave_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(bootweave_${name} PUBLIC bootweave_build_flags)
  foreach(room IN LISTS ARG_USES)
    target_link_libraries(bootweave_${name} PUBLIC bootweave_${room})
  endforeach()
endfunction()

# bootweave_program(NAME SOURCES file... USES library... DESTINATION folder)
# A program and its place on a host. The C++ library is linked into it: to load a shared one takes longer than
# all that a short run does.
function(bootweave_program name)
  cmake_parse_arguments(ARG "" "DESTINATION" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_USES})
  if(NOT BOOTWEAVE_SANITIZE)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  install(TARGETS ${name} RUNTIME DESTINATION ${ARG_DESTINATION})
endfunction()

# What tests are built with besides: nothing measures their own code, and to optimise it takes longer than all
# that it does. So does looking at each pointer of the test framework, which is half of a test's code there.
add_library(bootweave_test_flags INTERFACE)
target_compile_options(bootweave_test_flags INTERFACE
  $<$<CONFIG:Release,RelWithDebInfo>:-O0 -U_FORTIFY_SOURCE>)
if(BOOTWEAVE_SANITIZE)
  target_compile_options(bootweave_test_flags INTERFACE -fno-sanitize=null,alignment,vptr)
endif()

# bootweave_room_tests(NAME SOURCES file... [PLATFORM host|fake] [USES library...] [WRAP symbol...])
# One test program for the room, with every TEST known to ctest. PLATFORM chooses what stands behind
# platform/include: the real layer, or the fake of tests/support. Each WRAPped C function is replaced by
# __wrap_NAME, through which a test makes one call of the system fail.
function(bootweave_room_tests name)
  if(NOT BOOTWEAVE_TESTS)
    return()
  endif()
  cmake_parse_arguments(ARG "" "PLATFORM" "SOURCES;USES;WRAP" ${ARGN})
  set(target bootweave_${name}_test)
  add_executable(${target} ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE
    bootweave_${name} ${ARG_USES} bootweave_test_support bootweave_test_flags)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_precompile_headers(${target} REUSE_FROM bootweave_test_support)
  endif()
  if(ARG_PLATFORM STREQUAL "fake")
    target_link_libraries(${target} PRIVATE bootweave_platform_fake)
  elseif(ARG_PLATFORM STREQUAL "host")
    target_link_libraries(${target} PRIVATE bootweave_platform_${BOOTWEAVE_PLATFORM})
  endif()
  foreach(symbol IN LISTS ARG_WRAP)
    target_link_options(${target} PRIVATE -Wl,--wrap=${symbol})
  endforeach()
  if(CMAKE_CROSSCOMPILING_EMULATOR AND "bootweave_executor_sandbox" IN_LIST ARG_USES)
    # The sandbox adopts orphans, which the emulator does not let it ask for.
    set_property(TARGET ${target} APPEND PROPERTY CROSSCOMPILING_EMULATOR --adopt-orphans)
  endif()
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
