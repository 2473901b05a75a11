# SPDX-License-Identifier: Apache-2.0
#
# Builds for 64-bit Arm Linux with Debian's cross compiler, which brings the libraries of C and C++. All
# others come from build/arm64-sysroot, which scripts/lib/arm64-sysroot makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT})
  message(FATAL_ERROR "There is no ${CMAKE_SYSROOT}; scripts/lib/arm64-sysroot makes it")
endif()

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Programs that the build runs are this machine's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Each test and what it starts.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/lib/arm64-run)
cmake_path(NORMAL_PATH CMAKE_CROSSCOMPILING_EMULATOR)
