# SPDX-License-Identifier: BSD-2-Clause
# keystill_cold_sources(SOURCES...): what runs a few times a file, not a macroblock. On x86-64, where
# the decoders have kernels for several processors, it is built for size.
function(keystill_cold_sources)
    if(is_x86_64)
        set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-Os>)
    endif()
endfunction()

# keystill_reference_sources(SOURCES...): scalar kernels, which are but the reference where all
# processors have others.
function(keystill_reference_sources)
    if(KEYSTILL_SIMD)
        keystill_cold_sources(${ARGN})
    endif()
endfunction()
