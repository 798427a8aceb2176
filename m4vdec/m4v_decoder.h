// SPDX-License-Identifier: BSD-2-Clause
// Decoder instance for one MPEG-4 Part 2 or H.263 key frame: create it with the configuration,
// learn the picture size, give it a picture buffer, decode the sample, destroy it.
#pragma once

#include <stdint.h>

#include "m4vdec/m4v_presentation.h"
#include "m4vdec/m4v_refusal.h"

struct M4vDecoder;

struct M4vInput {
    const uint8_t* data;  // only read during the call
    uint32_t length;
};

// Bits of the state word.
constexpr uint32_t kM4vHasSize = 1;  // a header with the picture's size was read
constexpr uint32_t kM4vIsMpeg4 = 2;  // created for MPEG-4; short video headers are known as well

// Creates a decoder and reads the headers in its configuration; what cannot be used of that is
// passed over, since the sample may bring its own headers. H.263 has no headers in there. Until a
// header was read the picture size is the one given here. Returns 0, or 1 when there is no memory,
// and stores the decoder, or null.
int m4v_create(const M4vInput& configuration, uint32_t default_width, uint32_t default_height,
               bool is_mpeg4, M4vDecoder** decoder);
void m4v_destroy(M4vDecoder* decoder);  // null is allowed

// Why the last call of those below that return 1 did so, else kNone. Without a decoder: kNoMemory.
M4vRefusal m4v_refusal(const M4vDecoder* decoder);

uint32_t m4v_state(const M4vDecoder* decoder);

// Reads the headers in front of the sample's picture. Returns 1 when they do not give a size.
int m4v_read_headers(M4vDecoder* decoder, const M4vInput& sample);

// Luma samples: up to 8191 each way.
void m4v_picture_size(const M4vDecoder* decoder, uint32_t* width, uint32_t* height);

// What the headers read so far say about showing the picture.
M4vPresentation m4v_presentation(const M4vDecoder* decoder);

// Whether a sample of that many bytes can hold a picture of the decoder's size at all. To be asked
// before memory is spent on a picture that only a damaged header claims.
bool m4v_can_hold_picture(const M4vDecoder* decoder, uint32_t sample_length);

// The picture goes into planes: Y with a pitch of AW bytes (the width rounded up to a multiple of
// 16, AH likewise), Cb at AW * AH and Cr at a quarter of that after it, with pitch AW / 2. AW * AH
// * 3 / 2 bytes, of which every one is written by a successful decode.
void m4v_set_output(M4vDecoder* decoder, uint8_t* planes);

// Decodes the first picture of the sample. Returns 1 unless it is an intra picture of the size that
// the output was set for and decodes without an error.
int m4v_decode(M4vDecoder* decoder, const M4vInput& sample);
