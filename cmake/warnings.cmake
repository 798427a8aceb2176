# SPDX-License-Identifier: BSD-2-Clause
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
include_directories(${CMAKE_SOURCE_DIR})
# Files and times beyond 2 GiB and 2038, on 32-bit machines too.
add_compile_definitions(_FILE_OFFSET_BITS=64 _LARGEFILE64_SOURCE _TIME_BITS=64)

# Everything is built with these; the presets make them errors (CMAKE_COMPILE_WARNING_AS_ERROR).
add_compile_options(-Wall -Wextra -Wshadow -Wcast-qual)

# Where no exception passes, tables to unwind by are a tenth of the program for nobody. Debuggers
# have their own in builds with symbols.
set(keystill_no_exceptions -fno-exceptions -fno-rtti
    $<$<CONFIG:Release>:-fno-asynchronous-unwind-tables>)

# keystill_library(NAME SOURCES...): a static library of shipping code, which uses neither
# exceptions nor RTTI.
function(keystill_library name)
    add_library(${name} STATIC ${ARGN})
    # Linked into programs only: what a shared library could have replaced stays inlinable.
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(${name} PRIVATE -fPIE ${keystill_no_exceptions} -ffunction-sections
        -fdata-sections)
endfunction()

# keystill_program(NAME): installs a program, which brings what it needs of the C++ library along.
include(GNUInstallDirs)
function(keystill_program name)
    target_compile_options(${name} PRIVATE ${keystill_no_exceptions})
    target_link_options(${name} PRIVATE -Wl,--gc-sections -static-libgcc -static-libstdc++)
    install(TARGETS ${name} RUNTIME COMPONENT keystill)
endfunction()

# keystill_test(NAME SOURCES... LIBS ...): one GoogleTest program per module, run as one CTest entry.
function(keystill_test name)
    cmake_parse_arguments(T "" "" "LIBS" ${ARGN})
    add_executable(${name} ${T_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PRIVATE ${T_LIBS} keystill_test_support GTest::gtest_main)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    add_test(NAME ${name} COMMAND ${name})
endfunction()
