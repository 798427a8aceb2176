# SPDX-License-Identifier: BSD-2-Clause
# What the toolchain files for Debian's other architectures share. They set the processor, the
# KEYSTILL_DEBIAN_ARCHITECTURE that packages name, the triplet of the compilers, the emulator that
# programs run under, and flags. Libraries come from KEYSTILL_SYSROOT, which
# packaging/fetch-arm-sysroot fills.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

set(KEYSTILL_SYSROOT
    ${CMAKE_CURRENT_LIST_DIR}/../build/${KEYSTILL_DEBIAN_ARCHITECTURE}-sysroot CACHE PATH
    "Folder with the libraries for the target")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEYSTILL_SYSROOT)
string(APPEND flags " -isystem ${KEYSTILL_SYSROOT}/usr/include/${triplet}")
set(CMAKE_C_FLAGS_INIT ${flags})
set(CMAKE_CXX_FLAGS_INIT ${flags})

set(CMAKE_FIND_ROOT_PATH ${KEYSTILL_SYSROOT} /usr/${triplet})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Libraries that libraries need are found by no run path.
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} -L /usr/${triplet}
    -E LD_LIBRARY_PATH=${KEYSTILL_SYSROOT}/usr/lib/${triplet})
