# SPDX-License-Identifier: BSD-2-Clause
# Kernels written once for SSE2, which x86-64 promises, and NEON, which 32-bit ARM asks for when it
# runs: there no other file may use NEON. A 32-bit system may well run on a 64-bit processor.
set(is_arm FALSE)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(arm|aarch64)")
    set(is_arm TRUE)
endif()
set(is_x86_64 FALSE)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$" AND CMAKE_SIZEOF_VOID_P EQUAL 8)
    set(is_x86_64 TRUE)
endif()

# keystill_simd_sources(NAME SOURCES...): adds the kernels of this kind to a library of the calling
# folder, where KEYSTILL_HAS_SIMD is 1 then.
function(keystill_simd_sources name)
    if(NOT KEYSTILL_SIMD OR NOT (is_arm OR is_x86_64))
        return()
    endif()
    target_sources(${name} PRIVATE ${ARGN})
    target_compile_definitions(${name} PRIVATE KEYSTILL_HAS_SIMD=1)
    if(is_arm AND CMAKE_SIZEOF_VOID_P EQUAL 4)
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -mfpu=neon)
    endif()
endfunction()

# keystill_avx2_sources(NAME SOURCES...): the same for kernels that x86-64 has to be asked for.
function(keystill_avx2_sources name)
    if(NOT KEYSTILL_SIMD OR NOT is_x86_64)
        return()
    endif()
    target_sources(${name} PRIVATE ${ARGN})
    target_compile_definitions(${name} PRIVATE KEYSTILL_HAS_AVX2=1)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -mavx2)
endfunction()

# keystill_bmi2_functions(NAME): a library with functions that ask for BMI2 in their source, where
# KEYSTILL_HAS_BMI2 is 1 then.
function(keystill_bmi2_functions name)
    if(KEYSTILL_SIMD AND is_x86_64)
        target_compile_definitions(${name} PRIVATE KEYSTILL_HAS_BMI2=1)
    endif()
endfunction()
