// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/reconstruct.h"

#include <string.h>

static void predict_add_4x4(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst,
                            ptrdiff_t pitch) {
    for (int b = 0; b < 16; ++b) {
        uint8_t* const block = dst + block_y(b) * 4 * pitch + block_x(b) * 4;
        k.pred4x4[mb->modes[b]](block, pitch);
        const uint32_t bit = block_bit(b);
        if (!(mb->coded_mask & bit)) continue;
        (mb->ac_mask & bit ? k.add_4x4 : k.add_4x4_dc)(block, pitch, mb->coefficients + b * 16);
    }
}

// Which corner samples each 8x8 block has.
static unsigned corners8x8(const AvcMacroblock* mb, int b) {
    const auto flags = [](bool top_left, bool top_right) {
        return (top_left ? kPred8x8TopLeft : 0U) | (top_right ? kPred8x8TopRight : 0U);
    };
    switch (b) {
        case 0:
            return flags(mb->available & kHasTopLeft, mb->available & kHasTop);
        case 1:
            return flags(mb->available & kHasTop, mb->available & kHasTopRight);
        case 2:
            return flags(mb->available & kHasLeft, true);
        default:
            return flags(true, false);
    }
}

static void predict_add_8x8(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst,
                            ptrdiff_t pitch) {
    for (int b = 0; b < 4; ++b) {
        uint8_t* const block = dst + (b >> 1) * 8 * pitch + (b & 1) * 8;
        k.pred8x8[mb->modes[b]](block, pitch, corners8x8(mb, b));
        const uint32_t bit = block_bit(4 * b);
        if (!(mb->coded_mask & bit)) continue;
        (mb->ac_mask & bit ? k.add_8x8 : k.add_8x8_dc)(block, pitch, mb->coefficients + b * 64);
    }
}

// Adds the four 4x4 blocks of an 8x8 square. The masks have the bits of the four at the bottom.
static void add_square(const ReconKernels& k, uint32_t coded, uint32_t ac, uint8_t* dst,
                       ptrdiff_t pitch, int16_t* coefficients) {
    if ((coded & 15) == 0) return;
    (ac & 15 ? k.add_four_4x4 : k.add_four_4x4_dc)(dst, pitch, coefficients);
}

static void predict_add_16x16(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst,
                              ptrdiff_t pitch) {
    k.pred16x16[mb->intra16_mode](dst, pitch);
    for (int quadrant = 0; quadrant < 4; ++quadrant) {
        const int shift = 28 - 4 * quadrant;
        add_square(k, mb->coded_mask >> shift, mb->ac_mask >> shift,
                   dst + (quadrant >> 1) * 8 * pitch + (quadrant & 1) * 8, pitch,
                   mb->coefficients + quadrant * 64);
    }
}

static void predict_add_chroma(const ReconKernels& k, AvcMacroblock* mb, int c, uint8_t* dst,
                               ptrdiff_t pitch) {
    k.pred_chroma[mb->chroma_mode](dst, pitch);
    const int shift = 12 - 4 * c;
    add_square(k, mb->coded_mask >> shift, mb->ac_mask >> shift, dst, pitch,
               mb->coefficients + (4 + c) * 64);
}

static void predict_add(const ReconKernels& k, AvcMacroblock* mb, const MbSamples& to) {
    switch (mb->kind) {
        case MbKind::kIntra4x4:
            predict_add_4x4(k, mb, to.plane[0], to.luma_pitch);
            break;
        case MbKind::kIntra8x8:
            predict_add_8x8(k, mb, to.plane[0], to.luma_pitch);
            break;
        default:
            predict_add_16x16(k, mb, to.plane[0], to.luma_pitch);
            break;
    }
    for (int c = 0; c < 2; ++c) {
        predict_add_chroma(k, mb, c, to.plane[1 + c], to.chroma_pitch);
    }
}

// A macroblock at the border of its slice is made here, among neighbours of which the missing ones
// read as 128, so that no predictor has to ask. Each plane has a row above, 16 bytes before it for
// the left column, and room for the samples above and to the right.
struct BorderArea {
    static constexpr ptrdiff_t kPitch = 48;
    alignas(16) uint8_t luma[17 * kPitch];
    alignas(16) uint8_t chroma[2][9 * kPitch];

    uint8_t* block(int plane) { return (plane == 0 ? luma : chroma[plane - 1]) + kPitch + 16; }
};

// Copies the neighbours of one plane that are there. The one above to the left never is: with it
// all others are there too, and the macroblock is not at the border.
static void copy_neighbours(const uint8_t* from, ptrdiff_t pitch, int size, uint8_t available,
                            uint8_t* to) {
    const ptrdiff_t to_pitch = BorderArea::kPitch;
    const auto n = static_cast<size_t>(size);
    memset(to - to_pitch - 1, kMissingSample, 2 * n + 1);
    if (available & kHasTop) memcpy(to - to_pitch, from - pitch, n);
    if (available & kHasTopRight) memcpy(to - to_pitch + size, from - pitch + size, n);
    for (int y = 0; y < size; ++y) {
        to[y * to_pitch - 1] = available & kHasLeft ? from[y * pitch - 1] : kMissingSample;
    }
}

static void copy_block(const uint8_t* from, ptrdiff_t from_pitch, int size, uint8_t* to,
                       ptrdiff_t to_pitch) {
    for (int y = 0; y < size; ++y) {
        memcpy(to + y * to_pitch, from + y * from_pitch, static_cast<size_t>(size));
    }
}

static void reconstruct_at_border(const ReconKernels& k, AvcMacroblock* mb, const MbSamples& to) {
    __attribute__((uninitialized)) BorderArea area;
    const MbSamples inside = {
        {area.block(0), area.block(1), area.block(2)}, BorderArea::kPitch, BorderArea::kPitch};
    for (int i = 0; i < 3; ++i) {
        copy_neighbours(to.plane[i], i == 0 ? to.luma_pitch : to.chroma_pitch, i == 0 ? 16 : 8,
                        mb->available, inside.plane[i]);
    }
    predict_add(k, mb, inside);
    for (int i = 0; i < 3; ++i) {
        copy_block(inside.plane[i], BorderArea::kPitch, i == 0 ? 16 : 8, to.plane[i],
                   i == 0 ? to.luma_pitch : to.chroma_pitch);
    }
}

void reconstruct_macroblock(const AvcPictureInProgress& picture, AvcMacroblock* mb) {
    static constexpr uint8_t kInside = kHasLeft | kHasTop | kHasTopLeft;
    const MbSamples to = picture_samples(picture);
    if ((mb->available & kInside) == kInside) {
        predict_add(picture.kernels, mb, to);
    } else {
        reconstruct_at_border(picture.kernels, mb, to);
    }
}

void reconstruct_pcm(const AvcPictureInProgress& picture, const uint8_t* samples,
                     bool is_monochrome) {
    const MbSamples to = picture_samples(picture);
    copy_block(samples, 16, 16, to.plane[0], to.luma_pitch);
    for (int c = 0; c < 2; ++c) {
        if (is_monochrome) {
            fill_block(to.plane[1 + c], to.chroma_pitch, 8, kMissingSample);
        } else {
            copy_block(samples + 256 + 64 * c, 8, 8, to.plane[1 + c], to.chroma_pitch);
        }
    }
}
