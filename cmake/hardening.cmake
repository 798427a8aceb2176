# SPDX-License-Identifier: BSD-2-Clause
# What a program needs that reads the files of strangers, and what makes two builds the same.
# Builds with sanitizers (Debug, RelWithDebInfo) go without the first.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX C)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options($<$<CONFIG:Release>:-fstack-protector-strong>)
add_compile_definitions($<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
add_link_options($<$<CONFIG:Release>:LINKER:-z,relro,-z,now,-z,noexecstack>)

# No path of the machine gets into the program.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
