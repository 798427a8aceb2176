// SPDX-License-Identifier: BSD-2-Clause
// Decoded pictures of samples of choice.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "picture/upright_picture.h"

struct TestPicture {
    DecodedPicture decoded = {};
    std::vector<uint8_t> bytes;

    // Grey by x and y.
    TestPicture(uint32_t width, uint32_t height,
                const std::function<int(uint32_t, uint32_t)>& luma = nullptr) {
        const uint32_t pitch = (width + 15) / 16 * 16;
        const uint32_t rows = (height + 15) / 16 * 16;
        bytes.assign(pitch * rows * 3 / 2, 128);  // its exact size: sanitizers see what follows
        const uint32_t size = pitch * rows;
        decoded = {bytes.data(), width, height, pitch, size, size * 5 / 4, 0, 0, 0, 0, 0};
        for (uint32_t i = 0; luma && i < width * height; ++i) {
            bytes[i / width * pitch + i % width] = static_cast<uint8_t>(luma(i % width, i / width));
        }
    }
    void fill(uint8_t y, uint8_t u, uint8_t v) {
        std::fill_n(bytes.begin(), decoded.u_offset, y);
        std::fill_n(bytes.begin() + decoded.u_offset, decoded.u_offset / 4, u);
        std::fill_n(bytes.begin() + decoded.v_offset, decoded.u_offset / 4, v);
    }
};

inline ShowingHints hints_of(int full_range, int orientation = 1) {
    ShowingHints hints;
    hints.full_range = full_range;
    hints.turn = turn_of_orientation(orientation);
    return hints;
}

inline UprightPicture upright_of(const TestPicture& source, const ShowingHints& hints,
                                 const SizeLimit& limit = {},
                                 ChromaSize chroma = ChromaSize::kFull) {
    UprightPicture upright;
    EXPECT_EQ(make_upright(source.decoded, hints, limit, chroma, &upright), UprightStatus::kDone);
    return upright;
}
