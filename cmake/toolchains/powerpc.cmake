# Cross build for the device: 32-bit PowerPC, big-endian, Linux. docs/porting.md explains the
# variables, which are given with -D:
#
#   VOINET_CROSS_COMPILE   what stands before "gcc" and "g++"; may begin with a directory
#   VOINET_TARGET_FLAGS    compiler flags of the board, such as -mcpu=e300c3
#   VOINET_SYSROOT         the vendor's sysroot; empty: the one that the compiler knows itself
#   VOINET_TARGET_ROOT     a directory with a usr/ that holds what the sysroot does not: libcurl and,
#                          for the command and the tests, mbedTLS, fmt, CLI11, nlohmann-json and
#                          GoogleTest; scripts/powerpc-root.sh makes one
#   VOINET_EMULATOR        what runs the target's programs here, as a CMake list; empty: nothing does

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR powerpc)

set(VOINET_CROSS_COMPILE powerpc-linux-gnu- CACHE STRING "What stands before gcc and g++")
set(VOINET_TARGET_FLAGS "" CACHE STRING "Compiler flags of the board")
set(VOINET_SYSROOT "" CACHE PATH "The vendor's sysroot")
if(DEFINED ENV{XDG_CACHE_HOME})
  set(voinet_cache_directory "$ENV{XDG_CACHE_HOME}")
else()
  set(voinet_cache_directory "$ENV{HOME}/.cache")
endif()
set(VOINET_TARGET_ROOT "${voinet_cache_directory}/voinet/powerpc/root" CACHE PATH
  "What the sysroot does not hold")
# Where the target's loader and C library are.
if(VOINET_SYSROOT)
  set(voinet_loader_root "${VOINET_SYSROOT}")
else()
  set(voinet_loader_root /usr/powerpc-linux-gnu)
endif()
# The loader is started by name: with "qemu-ppc -L DIRECTORY" a program that opens "/" gets DIRECTORY.
set(VOINET_EMULATOR
  "qemu-ppc;${voinet_loader_root}/lib/ld.so.1;--library-path;${voinet_loader_root}/lib" CACHE STRING
  "What runs the target's programs here")
# The small projects that CMake tries things out with read this file too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  VOINET_CROSS_COMPILE VOINET_TARGET_FLAGS VOINET_SYSROOT VOINET_TARGET_ROOT VOINET_EMULATOR)

set(CMAKE_C_COMPILER "${VOINET_CROSS_COMPILE}gcc")
set(CMAKE_CXX_COMPILER "${VOINET_CROSS_COMPILE}g++")
set(CMAKE_C_FLAGS_INIT "${VOINET_TARGET_FLAGS}")
set(CMAKE_CXX_FLAGS_INIT "${VOINET_TARGET_FLAGS}")
if(VOINET_SYSROOT)
  set(CMAKE_SYSROOT "${VOINET_SYSROOT}")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR "${VOINET_EMULATOR}")

# Programs are this machine's; headers, libraries and packages are the target's.
set(CMAKE_FIND_ROOT_PATH ${VOINET_TARGET_ROOT} "${voinet_loader_root}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
