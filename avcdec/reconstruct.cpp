// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/reconstruct.h"

#include <string.h>

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

static void predict_add_luma(const ReconKernels& k, AvcMacroblock* mb, uint8_t* dst,
                             ptrdiff_t pitch) {
    switch (mb->kind) {
        case MbKind::kIntra4x4:
            k.intra_4x4(k, mb, dst, pitch);
            break;
        case MbKind::kIntra8x8:
            predict_add_8x8(k, mb, dst, pitch);
            break;
        default:
            k.intra_16x16(k, mb, dst, pitch);
            break;
    }
}

static void predict_add(const ReconKernels& k, AvcMacroblock* mb, const MbSamples& to) {
    predict_add_luma(k, mb, to.plane[0], to.luma_pitch);
    k.intra_chroma(k, mb, to.plane + 1, to.chroma_pitch);
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
// all others are there too, and the macroblock is not at the border. Inlined, each row would be
// checked against the end of the area by a call of the C library.
template <size_t kSize>
[[gnu::noinline]] static void copy_neighbours(const uint8_t* from, ptrdiff_t pitch,
                                              uint8_t available, uint8_t* to) {
    const ptrdiff_t to_pitch = BorderArea::kPitch;
    memset(to - to_pitch - 4, kMissingSample, 2 * kSize + 4);
    if (available & kHasTop) memcpy(to - to_pitch, from - pitch, kSize);
    if (available & kHasTopRight) memcpy(to - to_pitch + kSize, from - pitch + kSize, kSize);
    for (size_t y = 0; y < kSize; ++y, from += pitch, to += to_pitch) {
        // Four samples, of which the last counts: some kernels load them all.
        uint32_t left = kMissingSample * 0x01010101U;
        if (available & kHasLeft) memcpy(&left, from - 4, sizeof left);
        memcpy(to - 4, &left, sizeof left);
    }
}

template <size_t kSize>
static void copy_block(const uint8_t* from, ptrdiff_t from_pitch, uint8_t* to, ptrdiff_t to_pitch) {
    for (size_t y = 0; y < kSize; ++y, from += from_pitch, to += to_pitch) memcpy(to, from, kSize);
}

static void reconstruct_at_border(const ReconKernels& k, AvcMacroblock* mb, const MbSamples& to) {
    __attribute__((uninitialized)) BorderArea area;
    const MbSamples inside = {
        {area.block(0), area.block(1), area.block(2)}, BorderArea::kPitch, BorderArea::kPitch};
    copy_neighbours<16>(to.plane[0], to.luma_pitch, mb->available, inside.plane[0]);
    for (int i = 1; i < 3; ++i) {
        copy_neighbours<8>(to.plane[i], to.chroma_pitch, mb->available, inside.plane[i]);
    }
    predict_add(k, mb, inside);
    copy_block<16>(inside.plane[0], BorderArea::kPitch, to.plane[0], to.luma_pitch);
    for (int i = 1; i < 3; ++i) {
        copy_block<8>(inside.plane[i], BorderArea::kPitch, to.plane[i], to.chroma_pitch);
    }
}

static bool is_inside(const AvcMacroblock* mb) {
    constexpr uint8_t kInside = kHasLeft | kHasTop | kHasTopLeft;
    return (mb->available & kInside) == kInside;
}

void reconstruct_plane(const AvcPictureInProgress& picture, AvcMacroblock* mb, int plane) {
    const MbSamples to = picture_samples(picture);
    uint8_t* const dst = to.plane[plane];
    if (is_inside(mb)) {
        predict_add_luma(picture.kernels, mb, dst, to.luma_pitch);
        return;
    }
    __attribute__((uninitialized)) BorderArea area;
    uint8_t* const inside = area.block(0);
    copy_neighbours<16>(dst, to.luma_pitch, mb->available, inside);
    predict_add_luma(picture.kernels, mb, inside, BorderArea::kPitch);
    copy_block<16>(inside, BorderArea::kPitch, dst, to.luma_pitch);
}

void reconstruct_macroblock(const AvcPictureInProgress& picture, AvcMacroblock* mb) {
    const MbSamples to = picture_samples(picture);
    if (is_inside(mb)) {
        predict_add(picture.kernels, mb, to);
    } else {
        reconstruct_at_border(picture.kernels, mb, to);
    }
}

void reconstruct_pcm(const AvcPictureInProgress& picture, const uint8_t* samples,
                     bool is_monochrome) {
    const MbSamples to = picture_samples(picture);
    copy_block<16>(samples, 16, to.plane[0], to.luma_pitch);
    for (int c = 0; c < 2; ++c) {
        if (picture.planes.is_444) {
            copy_block<16>(samples + 256 + 256 * c, 16, to.plane[1 + c], to.chroma_pitch);
        } else if (is_monochrome) {
            fill_block(to.plane[1 + c], to.chroma_pitch, 8, kMissingSample);
        } else {
            copy_block<8>(samples + 256 + 64 * c, 8, to.plane[1 + c], to.chroma_pitch);
        }
    }
}
