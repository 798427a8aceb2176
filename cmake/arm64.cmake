# SPDX-License-Identifier: BSD-2-Clause
# Toolchain for 64-bit ARM Linux, as Debian's arm64, whose baseline has NEON.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KEYSTILL_DEBIAN_ARCHITECTURE arm64)
set(triplet aarch64-linux-gnu)
set(emulator qemu-aarch64-static)
set(flags "")
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
