// SPDX-License-Identifier: BSD-2-Clause
// The thumbnail writer behind decoders of the test's own, which hand out made pictures in blocks of
// their exact size.
#include "thumb/thumbnail.h"

#include <gtest/gtest.h>

#include <string>

#include "runtime/accounted_memory.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/stub_decoders.h"
#include "tests/support/temp_folder.h"
#include "thumb/fit.h"

struct Crop {
    uint32_t left, right, top, bottom;
};

static struct {
    PictureSize size;
    Crop crop = {};
    int status = 0;
    bool has_planes = true;
    int calls = 0;
} g_decoder;

// Luma grows by 1 a column and 2 a row, as far as 8 bits go; chroma by 1 a column or row.
static uint8_t sample(uint32_t value) { return static_cast<uint8_t>(std::min(255u, value)); }

static int hand_out(DecodedPicture* picture) {
    ++g_decoder.calls;
    if (!g_decoder.has_planes) return g_decoder.status;
    const uint32_t width = static_cast<uint32_t>(g_decoder.size.width);
    const uint32_t height = static_cast<uint32_t>(g_decoder.size.height);
    const uint32_t pitch = (width + 15) & ~15u, luma = pitch * ((height + 15) & ~15u);
    const auto& [left, right, top, bottom] = g_decoder.crop;
    uint8_t* const planes = static_cast<uint8_t*>(upnp_malloc(luma * 3 / 2));
    *picture = {planes, width, height, pitch, luma, luma / 4 * 5, true, left, right, top, bottom};
    for (uint32_t i = 0; i < luma; ++i) planes[i] = sample(i % pitch + i / pitch * 2);
    for (uint32_t i = 0; i < luma / 4; ++i) {
        planes[luma + i] = sample(i % (pitch / 2));
        planes[luma / 4 * 5 + i] = sample(i / (pitch / 2));
    }
    return g_decoder.status;
}

struct Thumbnail : testing::Test {
    // The status for a picture and what is cut off it; the fitted size is in fitted_.
    int write(PictureSize picture, Crop crop, PictureSize requested,
              int32_t codec_kind = kCodecMpeg4) {
        g_decoder = {picture, crop};
        return write_again(requested, codec_kind);
    }
    int write_again(PictureSize requested, int32_t codec_kind = kCodecMpeg4) {
        KeyFrame record = {bytes_, 4, bytes_, 6, 4, 10};
        ThumbnailParams params = {output_.c_str(), quality_, requested.width, requested.height};
        const int status = WriteThumbnail(&record, &params, codec_kind);
        EXPECT_EQ(g_memUsed, 0);
        fitted_ = {params.width, params.height};
        return status;
    }

    uint8_t bytes_[8] = {};
    int32_t quality_ = 90;
    PictureSize fitted_;
    TempFolder folder_;
    std::string output_ = folder_.path("o.jpg");
};

TEST_F(Thumbnail, ShowsTheFittedPicture) {
    const auto check = [&](PictureSize grid, Crop crop, PictureSize requested, PictureSize want,
                           int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        ASSERT_EQ(write(grid, crop, requested, kCodecAvc), 0);
        const JpegImage image = read_jpeg(read_file(output_));
        ASSERT_EQ(image.width, want.width);
        ASSERT_EQ(image.height, want.height);
        EXPECT_TRUE(image.is_baseline_420_jfif);
        const int last_x = grid.width - static_cast<int>(crop.right) - 1;
        const int last_y = grid.height - static_cast<int>(crop.top + crop.bottom) - 1;
        for (int i = 0; i < image.width * image.height; ++i) {
            const int x = i % image.width, y = i / image.width;
            const double at_x = 1.0 * x * last_x / (image.width - 1);
            const double at_y = crop.top + 1.0 * y * last_y / (image.height - 1);
            ASSERT_NEAR(image.at(x, y)[0], std::min(255.0, at_x + 2 * at_y), 7) << x << " " << y;
            ASSERT_NEAR(image.at(x, y)[1], at_x / 2, 5) << x << " " << y;
            ASSERT_NEAR(image.at(x, y)[2], at_y / 2, 5) << x << " " << y;
        }
    };
    check({96, 64}, {0, 0, 0, 0}, {48, 48}, {48, 32});      // in place
    check({64, 96}, {0, 0, 0, 0}, {40, 60}, {40, 60});      // in place, padded
    check({96, 64}, {0, 0, 0, 0}, {192, 192}, {192, 128});  // enlarged
    check({96, 64}, {0, 4, 0, 8}, {0, 0}, {92, 56});        // padded where it stands
    check({96, 64}, {0, 0, 8, 2}, {0, 0}, {96, 54});        // moved to whole blocks first
    check({96, 64}, {0, 16, 16, 0}, {40, 30}, {40, 24});    // cropped and in place
    write({96, 64}, {32, 0, 0, 0}, {0, 0});
    const JpegImage image = read_jpeg(read_file(output_));
    const size_t length = read_file(output_).size();
    quality_ = 50;
    write({96, 64}, {32, 0, 0, 0}, {0, 0});
    EXPECT_LT(read_file(output_).size(), length);
    EXPECT_NEAR(image.at(0, 0)[0], 32, 3);
    EXPECT_NEAR(image.at(0, 0)[1], 8, 3) << "columns on the left move chroma by a quarter";
}

TEST_F(Thumbnail, MovesToWholeBlocksAsFlatRuns) {
    ASSERT_EQ(write({96, 64}, {0, 26, 2, 0}, {0, 0}, kCodecAvc), 0);
    const JpegImage image = read_jpeg(read_file(output_));
    // Row 3 of pitch 80 starts in the middle of row 2 of pitch 96.
    EXPECT_NEAR(image.at(0, 3)[0], 48 + 2 * (2 + 2), 8);
}

TEST_F(Thumbnail, KeepsTheShapeInSinglePrecisionAndEndsWhereJpegDoes) {
    const auto check = [&](PictureSize picture, PictureSize requested, PictureSize want, int status,
                           int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        EXPECT_EQ(write(picture, {}, requested), status);
        EXPECT_EQ(fitted_.width, want.width);
        EXPECT_EQ(fitted_.height, want.height);
        if (status != 0) return;
        const JpegImage image = read_jpeg(read_file(output_));
        EXPECT_EQ(image.width, want.width);
        EXPECT_EQ(image.height, want.height);
    };
    check({640, 480}, {160, 160}, {160, 120}, 0);
    check({480, 640}, {160, 160}, {120, 160}, 0);
    check({640, 480}, {600, 600}, {600, 449}, 0);  // 449.99997
    check({1920, 1080}, {0, 240}, {1920, 1080}, 0);
    check({4096, 16}, {160, 160}, {160, 0}, 1);
    check({16, 16}, {2000, 2000}, {1999, 2000}, 0);  // both ratios not above 0.01
    check({32, 16}, {2000, 4000}, {7999, 4000}, 0);  // so the width cannot bind
    check({65520, 16}, {65534, 65534}, {268361728, 65534}, 1);
    check({16, 16}, {2, 2147483646}, {INT32_MAX, 2147483646}, 1);
    check({4096, 4080}, {4096, 4096}, {4096, 4080}, 0);
    check({65520, 16}, {65534, 600}, {65534, 16}, 1);  // JPEG ends at 65500
    check({65520, 16}, {65500, 600}, {65500, 15}, 0);
    check({16, 65520}, {65534, 4096}, {1, 4096}, 0);
    check({1, 1}, {65534, 65534}, {65534, 65534}, 1);
}

TEST_F(Thumbnail, RefusesBadRecordsBeforeDecoding) {
    // Configuration length, bytes read, length prefix, codec kind, decoder's calls.
    static const int32_t kCases[][5] = {
        {4, 6, 4, kCodecAvc, 1},  {4, 5, 4, kCodecAvc, 0}, {3, 6, 4, kCodecAvc, 0},
        {4, 6, 3, kCodecAvc, 0},  {4, 6, 0, kCodecAvc, 0}, {4, 3, 1, kCodecAvc, 1},
        {4, -1, 1, kCodecAvc, 0}, {4, 6, 4, 4, 0},         {0, 0, 0, kCodecMpeg4, 1},
    };
    for (const auto& [config_length, bytes_read, prefix, kind, calls] : kCases) {
        g_decoder = {{16, 16}};
        KeyFrame record = {bytes_, config_length, bytes_, bytes_read, prefix, 10};
        ThumbnailParams params = {"/dev/null", 90, 16, 16};
        EXPECT_EQ(WriteThumbnail(&record, &params, kind), 1 - calls);
        EXPECT_EQ(g_decoder.calls, calls);
    }
}

TEST_F(Thumbnail, LeavesTheFileAloneUnlessThereIsAPictureToWrite) {
    write_file(output_, "old");
    g_decoder = {{32, 32}, {}, 1};
    EXPECT_EQ(write_again({16, 16}), 1);
    g_decoder = {{32, 32}, {}, 0, false};
    EXPECT_EQ(write_again({16, 16}),
              0);  // a decoder's word without a picture is taken as it stands
    EXPECT_EQ(write({32, 32}, {16, 16, 0, 0}, {16, 16}), 1);
    EXPECT_EQ(write({32, 32}, {0, 0, 4000000000u, 4000000000u}, {16, 16}), 1);
    EXPECT_EQ(read_file(output_), "old");
    EXPECT_EQ(write({4096, 16}, {}, {160, 160}), 1);  // to 160x0, which the JPEG library refuses
    EXPECT_EQ(read_file(output_), "");
}
