# SPDX-License-Identifier: BSD-2-Clause
# Toolchain for 32-bit ARM Linux with hardware floating point, as Debian's armhf: the baseline has
# no NEON, kernels that use it ask for it when they run. libjpeg comes from KEYSTILL_ARMHF_SYSROOT,
# which packaging/fetch-armhf-sysroot fills; programs run under qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

set(KEYSTILL_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot CACHE PATH
    "Folder with libjpeg for the target")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEYSTILL_ARMHF_SYSROOT)
set(flags "-march=armv7-a -mfloat-abi=hard -mfpu=vfpv3-d16")
string(APPEND flags " -isystem ${KEYSTILL_ARMHF_SYSROOT}/usr/include/arm-linux-gnueabihf")
set(CMAKE_C_FLAGS_INIT ${flags})
set(CMAKE_CXX_FLAGS_INIT ${flags})

set(CMAKE_FIND_ROOT_PATH ${KEYSTILL_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L /usr/arm-linux-gnueabihf)
