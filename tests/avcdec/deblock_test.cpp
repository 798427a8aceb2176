// SPDX-License-Identifier: BSD-2-Clause
// The loop filter against H.264 8.7, sample by sample, over small pictures.
#include "avcdec/deblock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "avcdec/deblock_tables.h"
#include "avcdec/quant_tables.h"

namespace {

constexpr int kColumns = 4;
constexpr int kRows = 3;
constexpr int kStride = kColumns * 16;

struct Picture {
    std::vector<uint8_t> samples = std::vector<uint8_t>(kStride * kRows * 24);

    uint8_t* plane(int i) {
        const int luma = kStride * kRows * 16;
        return samples.data() + (i == 0 ? 0 : luma + (i - 1) * luma / 4);
    }
};

// Filters across one edge position: step leads from p0 to q0 (H.264 8.7.2.3, 8.7.2.4).
void filter_line(uint8_t* q, ptrdiff_t step, bool is_strong, bool is_chroma, int index_a,
                 int index_b) {
    const int alpha = kDeblockAlpha[kDeblockPad + std::clamp(index_a, 0, 51)];
    const int beta = kDeblockBeta[kDeblockPad + std::clamp(index_b, 0, 51)];
    const int tc0 = kDeblockTc0[kDeblockPad + std::clamp(index_a, 0, 51)];
    const int p0 = q[-step], p1 = q[-2 * step], q0 = q[0], q1 = q[step];
    if (abs(p0 - q0) >= alpha || abs(p1 - p0) >= beta || abs(q1 - q0) >= beta) return;
    const int p2 = is_chroma ? 0 : q[-3 * step], q2 = is_chroma ? 0 : q[2 * step];
    const bool is_flat_p = !is_chroma && abs(p2 - p0) < beta;
    const bool is_flat_q = !is_chroma && abs(q2 - q0) < beta;
    const auto set = [&](int i, int v) {
        q[i * step] = static_cast<uint8_t>(std::clamp(v, 0, 255));
    };
    if (!is_strong) {
        const int tc = is_chroma ? tc0 + 1 : tc0 + is_flat_p + is_flat_q;
        const int delta = std::clamp(((q0 - p0) * 4 + (p1 - q1) + 4) >> 3, -tc, tc);
        const int middle = (p0 + q0 + 1) >> 1;
        if (is_flat_p) set(-2, p1 + std::clamp((p2 + middle - 2 * p1) >> 1, -tc0, tc0));
        if (is_flat_q) set(1, q1 + std::clamp((q2 + middle - 2 * q1) >> 1, -tc0, tc0));
        set(-1, p0 + delta);
        set(0, q0 - delta);
        return;
    }
    const bool is_near = abs(p0 - q0) < (alpha >> 2) + 2;
    const int p3 = is_chroma ? 0 : q[-4 * step], q3 = is_chroma ? 0 : q[3 * step];
    set(-1, (2 * p1 + p0 + q1 + 2) >> 2);
    set(0, (2 * q1 + q0 + p1 + 2) >> 2);
    if (is_flat_p && is_near) {
        set(-1, (p2 + 2 * p1 + 2 * p0 + 2 * q0 + q1 + 4) >> 3);
        set(-2, (p2 + p1 + p0 + q0 + 2) >> 2);
        set(-3, (2 * p3 + 3 * p2 + p1 + p0 + q0 + 4) >> 3);
    }
    if (is_flat_q && is_near) {
        set(0, (p1 + 2 * p0 + 2 * q0 + 2 * q1 + q2 + 4) >> 3);
        set(1, (p0 + q0 + q1 + q2 + 2) >> 2);
        set(2, (2 * q3 + 3 * q2 + q1 + q0 + p0 + 4) >> 3);
    }
}

int chroma_qp(int qp, int offset) { return kChromaQp[12 + std::clamp(qp + offset, 0, 51)]; }

// All edges of one direction in one plane of a macroblock.
void filter_edges(Picture* picture, int plane, int column, int row, bool is_vertical,
                  const DeblockRecord& q, const DeblockRecord* p) {
    const bool is_chroma = plane != 0;
    const int size = is_chroma ? 8 : 16;
    const ptrdiff_t pitch = is_chroma ? kStride / 2 : kStride;
    uint8_t* const block = picture->plane(plane) + row * size * pitch + column * size;
    const int between = !is_chroma && q.flags & kDeblockTransform8x8 ? 8 : 4;
    for (int edge = p ? 0 : between; edge < size; edge += between) {
        const auto qp_of = [&](const DeblockRecord& r) {
            return is_chroma ? chroma_qp(r.qp, q.chroma_offset[plane - 1]) : r.qp;
        };
        const int qp = (qp_of(edge == 0 ? *p : q) + qp_of(q) + 1) >> 1;
        for (int i = 0; i < size; ++i) {
            uint8_t* const at = is_vertical ? block + i * pitch + edge : block + edge * pitch + i;
            filter_line(at, is_vertical ? 1 : pitch, edge == 0, is_chroma, qp + q.offset_a,
                        qp + q.offset_b);
        }
    }
}

void filter_picture(Picture* picture, const DeblockRecord (*records)[kColumns]) {
    for (int row = 0; row < kRows; ++row) {
        for (int column = 0; column < kColumns; ++column) {
            const DeblockRecord& q = records[row][column];
            if (!(q.flags & kDeblockInner)) continue;
            for (const bool is_vertical : {true, false}) {
                const DeblockRecord* p = nullptr;
                if (is_vertical && column > 0 && q.flags & kDeblockLeft) p = &q - 1;
                if (!is_vertical && row > 0 && q.flags & kDeblockTop) p = &q - kColumns;
                if (p && !(p->flags & kDeblockDecoded)) p = nullptr;
                for (int plane = 0; plane < (q.flags & kDeblockMonochrome ? 1 : 3); ++plane) {
                    filter_edges(picture, plane, column, row, is_vertical, q, p);
                }
            }
        }
    }
}

class Deblock : public testing::TestWithParam<ReconKernels (*)()> {};

TEST_P(Deblock, EqualsTheStandardOnRandomPictures) {
    const ReconKernels kernels = GetParam()();
    std::mt19937 rng(7);
    const auto range = [&](int low, int high) {
        return low + static_cast<int>(rng() % static_cast<unsigned>(high - low + 1));
    };
    int changed = 0;
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        DeblockRecord records[kRows][kColumns];
        const int mean_qp = range(0, 51);
        for (auto& row : records) {
            for (DeblockRecord& r : row) {
                r.qp = static_cast<uint8_t>(std::clamp(mean_qp + range(-4, 4), 0, 51));
                r.offset_a = static_cast<int8_t>(2 * range(-6, 6));
                r.offset_b = static_cast<int8_t>(2 * range(-6, 6));
                for (int8_t& offset : r.chroma_offset) offset = static_cast<int8_t>(range(-12, 12));
                r.flags = static_cast<uint8_t>(kDeblockDecoded | (rng() % 16) << 1);
                if (rng() % 8 == 0) r.flags = 0;
                if (round % 7 == 0) r.flags |= kDeblockMonochrome;
            }
        }
        Picture want;
        const int spread = range(1, 40);
        const int level = range(0, 255 - spread);
        for (uint8_t& s : want.samples) s = static_cast<uint8_t>(level + range(0, spread));
        Picture got = want;
        const Picture before = want;
        filter_picture(&want, records);

        const AvcPicture picture = {
            {got.plane(0), got.plane(1), got.plane(2)}, kStride, kColumns, kRows};
        for (uint32_t row = 0; row < kRows; ++row) {
            deblock_row(kernels, picture, row, row == 0 ? nullptr : records[row - 1], records[row]);
        }
        ASSERT_TRUE(got.samples == want.samples);
        changed += want.samples != before.samples;
    }
    EXPECT_GT(changed, 200);
}

INSTANTIATE_TEST_SUITE_P(Scalar, Deblock, testing::Values(recon_kernels_scalar));
INSTANTIATE_TEST_SUITE_P(Best, Deblock, testing::Values(recon_kernels_best));

}  // namespace
