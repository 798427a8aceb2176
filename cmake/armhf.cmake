# SPDX-License-Identifier: BSD-2-Clause
# Toolchain for 32-bit ARM Linux with hardware floating point, as Debian's armhf: the baseline has
# no NEON, kernels that use it ask for it when they run.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(KEYSTILL_DEBIAN_ARCHITECTURE armhf)
set(triplet arm-linux-gnueabihf)
set(emulator qemu-arm-static)
set(flags "-march=armv7-a -mfloat-abi=hard -mfpu=vfpv3-d16")
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
