// SPDX-License-Identifier: BSD-2-Clause
// What the fuzz targets share.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <vector>

#if defined(__has_feature)
#if __has_feature(memory_sanitizer)
#include <sanitizer/msan_interface.h>
#define KEYSTILL_EXPECT_SET(bytes, length) __msan_check_mem_is_initialized(bytes, length)
#endif
#endif
#ifndef KEYSTILL_EXPECT_SET
#define KEYSTILL_EXPECT_SET(bytes, length)
#endif

#include "avcdec/decoded_picture.h"
#include "runtime/accounted_memory.h"
#include "tests/support/choices.h"

// Runs one input.
void run_target(Choices* choices);

// All results so far, as one number. It depends neither on the machine, unless files are among
// them, nor on what fresh memory holds.
inline uint64_t g_results = 0;

// Notes bytes that an input has led to. All of them have to be set.
inline void note_result(const void* bytes, size_t length) {
    KEYSTILL_EXPECT_SET(bytes, length);
    const uint8_t* const b = static_cast<const uint8_t*>(bytes);
    for (size_t i = 0; i < length; ++i) g_results = (g_results ^ b[i]) * 0x100000001b3;
}
inline void note_result(int result) { note_result(&result, sizeof result); }

// Notes a decoded picture. Returns its planes, one behind the other.
inline std::vector<uint8_t> note_picture(const DecodedPicture& p) {
    const StreamPresentation& shown = p.presentation;
    for (const uint32_t field :
         {p.width, p.height, p.stride, uint32_t{p.cropped}, p.crop_left, p.crop_right, p.crop_top,
          p.crop_bottom, uint32_t{shown.pixel_width}, uint32_t{shown.pixel_height},
          uint32_t{shown.matrix_coefficients}, uint32_t{shown.full_range}}) {
        note_result(&field, sizeof field);
    }
    const std::vector<uint8_t> planes(p.planes, p.planes + 2 * size_t{p.v_offset} - p.u_offset);
    note_result(planes.data(), planes.size());
    return planes;
}

// A path to write to, and what was written there since the last time.
const char* result_path();
void note_result_file();

// Everything has to be released after each input.
extern "C" inline __attribute__((used)) int LLVMFuzzerTestOneInput(const uint8_t* data,
                                                                   size_t size) {
    Choices choices(data, size);
    run_target(&choices);
    if (g_memUsed != 0) abort();
    return 0;
}
