# SPDX-License-Identifier: BSD-2-Clause
# What a program needs that reads the files of strangers, and what makes two builds the same.
# Builds with sanitizers (Debug, RelWithDebInfo) go without the first.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX C)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckCXXCompilerFlag)
function(keystill_harden flag)
    string(MAKE_C_IDENTIFIER "KEYSTILL_HAS${flag}" known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
        add_compile_options($<$<CONFIG:Release>:${flag}>)
    endif()
endfunction()
keystill_harden(-fstack-protector-strong)
# Each of these costs at most 0.8 per cent of the instructions of a run that decodes. The last one
# marks where indirect calls may lead; it takes effect where the C runtime is built with it too.
keystill_harden(-fstack-clash-protection)
keystill_harden(-ftrivial-auto-var-init=zero)
keystill_harden(-fcf-protection)
add_compile_options("$<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
add_link_options($<$<CONFIG:Release>:LINKER:-z,relro,-z,now,-z,noexecstack>)

# No path of the machine gets into the program.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
