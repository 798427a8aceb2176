// SPDX-License-Identifier: BSD-2-Clause
// The thumbnail writer behind decoders of the test's own, which hand out made pictures in blocks of
// their exact size.
#include "thumb/thumbnail.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "avcdec/decode_key_frame_avc.h"
#include "runtime/accounted_memory.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/temp_folder.h"
#include "thumb/decode_key_frame_mpeg4.h"
#include "thumb/fit.h"

struct Crop {
    uint32_t left, right, top, bottom;
};

static struct {
    PictureSize size;
    Crop crop = {};
    bool is_cropped = false;
    int status = 0;
    bool has_planes = true;
    int calls = 0;
} g_decoder;

// Luma grows by 1 a column and 2 a row, as far as 8 bits go; chroma by 1 a column or row.
static void fill(DecodedPicture* picture, uint32_t chroma_rows) {
    for (uint32_t i = 0; i < picture->u_offset; ++i) {
        picture->planes[i] =
            static_cast<uint8_t>(std::min(255u, i % picture->stride + i / picture->stride * 2));
    }
    const uint32_t pitch = picture->stride / 2;
    for (uint32_t i = 0; i < chroma_rows * pitch; ++i) {
        picture->planes[picture->u_offset + i] = static_cast<uint8_t>(std::min(255u, i % pitch));
        picture->planes[picture->v_offset + i] = static_cast<uint8_t>(std::min(255u, i / pitch));
    }
}

static int hand_out(DecodedPicture* picture) {
    ++g_decoder.calls;
    if (!g_decoder.has_planes) return g_decoder.status;
    const uint32_t pitch = static_cast<uint32_t>(align16(g_decoder.size.width));
    const uint32_t rows = static_cast<uint32_t>(align16(g_decoder.size.height));
    const Crop& crop = g_decoder.crop;
    *picture = {static_cast<uint8_t*>(upnp_malloc(pitch * rows * 3 / 2)),
                static_cast<uint32_t>(g_decoder.size.width),
                static_cast<uint32_t>(g_decoder.size.height),
                pitch,
                pitch * rows,
                pitch * rows + pitch * rows / 4,
                g_decoder.is_cropped,
                crop.left,
                crop.right,
                crop.top,
                crop.bottom};
    if (!picture->planes) return 1;
    fill(picture, rows / 2);
    return g_decoder.status;
}

int DecodeKeyFrameAvc(const AvcFrameRequest*, DecodedPicture* picture) { return hand_out(picture); }
int DecodeKeyFrameMpeg4(const KeyFrame*, DecodedPicture* picture, int32_t) {
    return hand_out(picture);
}

class Thumbnail : public testing::Test {
 protected:
    Thumbnail() { g_decoder = {}; }
    ~Thumbnail() override { EXPECT_EQ(g_memUsed, 0); }

    int write(PictureSize requested, int32_t codec_kind = kCodecMpeg4) {
        KeyFrame record = {bytes_, 4, bytes_, 6, 4, 10};
        params_ = {output_.c_str(), 90, requested.width, requested.height};
        return WriteThumbnail(&record, &params_, codec_kind);
    }
    // A run of which only the status counts: nothing is kept, and sizes of 0 have to fail.
    void write_away(PictureSize requested) {
        KeyFrame record = {bytes_, 4, bytes_, 6, 4, 10};
        params_ = {"/dev/null", 10, requested.width, requested.height};
        const int status = WriteThumbnail(&record, &params_, kCodecMpeg4);
        const bool is_empty = params_.width == 0 || params_.height == 0;
        ASSERT_EQ(status, is_empty ? 1 : 0)
            << g_decoder.size.width << "x" << g_decoder.size.height << " cropped by "
            << g_decoder.crop.left << "," << g_decoder.crop.right << "," << g_decoder.crop.top
            << "," << g_decoder.crop.bottom << " into " << requested.width << "x"
            << requested.height;
    }
    void crop_to(PictureSize grid, Crop crop) {
        g_decoder.size = grid;
        g_decoder.is_cropped = true;
        g_decoder.crop = crop;
    }

    uint8_t bytes_[8] = {};
    TempFolder folder_;
    std::string output_ = folder_.path("o.jpg");
    ThumbnailParams params_ = {};
};

TEST_F(Thumbnail, ShowsTheFittedPicture) {
    static const struct {
        PictureSize grid;
        Crop crop;
        PictureSize requested, want;
    } kCases[] = {
        {{96, 64}, {0, 0, 0, 0}, {48, 48}, {48, 32}},      // in place
        {{64, 96}, {0, 0, 0, 0}, {40, 60}, {40, 60}},      // in place, padded
        {{96, 64}, {0, 0, 0, 0}, {192, 192}, {192, 128}},  // enlarged
        {{96, 64}, {0, 0, 0, 0}, {0, 0}, {96, 64}},        // as it is
        {{96, 64}, {0, 4, 0, 8}, {0, 0}, {92, 56}},        // padded where it stands
        {{96, 64}, {0, 0, 8, 2}, {0, 0}, {96, 54}},        // moved to whole blocks first
        {{96, 64}, {0, 16, 16, 0}, {40, 30}, {40, 24}},    // cropped and in place
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.want.width << "x" << c.want.height);
        crop_to(c.grid, c.crop);
        ASSERT_EQ(write(c.requested, kCodecAvc), 0);
        const JpegImage image = read_jpeg(read_file(output_));
        ASSERT_EQ(image.width, c.want.width);
        ASSERT_EQ(image.height, c.want.height);
        EXPECT_EQ(params_.width, c.want.width);
        EXPECT_EQ(params_.height, c.want.height);
        const int visible_width = c.grid.width - static_cast<int>(c.crop.right);
        const int visible_height = c.grid.height - static_cast<int>(c.crop.top + c.crop.bottom);
        for (int y = 0; y < image.height; ++y) {
            const double at_y = c.crop.top + y * (visible_height - 1.0) / (image.height - 1);
            for (int x = 0; x < image.width; ++x) {
                const double at_x = x * (visible_width - 1.0) / (image.width - 1);
                ASSERT_NEAR(image.at(x, y)[0], std::min(255.0, at_x + 2 * at_y), 7)
                    << x << " " << y;
                ASSERT_NEAR(image.at(x, y)[1], at_x / 2, 5) << x << " " << y;
                ASSERT_NEAR(image.at(x, y)[2], at_y / 2, 5) << x << " " << y;
            }
        }
    }
}

TEST_F(Thumbnail, CropsOnTheLeftMoveChromaByAQuarter) {
    crop_to({96, 64}, {32, 0, 0, 0});
    ASSERT_EQ(write({0, 0}), 0);
    const JpegImage image = read_jpeg(read_file(output_));
    ASSERT_EQ(image.width, 64);
    EXPECT_NEAR(image.at(0, 0)[0], 32, 3);
    EXPECT_NEAR(image.at(0, 0)[1], 8, 3);
}

TEST_F(Thumbnail, RefusesBadRecordsBeforeDecoding) {
    static const struct {
        int32_t config_length, bytes_read, prefix, codec_kind;
        bool is_decoded;
    } kCases[] = {
        {4, 6, 4, kCodecAvc, true},  {4, 5, 4, kCodecAvc, false},  {3, 6, 4, kCodecAvc, false},
        {4, 6, 3, kCodecAvc, false}, {4, 6, 0, kCodecAvc, false},  {4, 4, 2, kCodecAvc, true},
        {4, 3, 1, kCodecAvc, true},  {4, -1, 1, kCodecAvc, false}, {4, 6, 4, 0, false},
        {4, 6, 4, 4, false},         {4, 6, 4, kCodecNone, false}, {0, 0, 0, kCodecMpeg4, true},
        {0, 0, 0, kCodecH263, true},
    };
    g_decoder.size = {16, 16};
    for (const auto& c : kCases) {
        const int calls = g_decoder.calls;
        KeyFrame record = {bytes_, c.config_length, bytes_, c.bytes_read, c.prefix, 10};
        ThumbnailParams params = {"/dev/null", 90, 16, 16};
        EXPECT_EQ(WriteThumbnail(&record, &params, c.codec_kind), c.is_decoded ? 0 : 1);
        EXPECT_EQ(g_decoder.calls - calls, c.is_decoded ? 1 : 0);
    }
    KeyFrame empty = {nullptr, 4, bytes_, 6, 4, 10};
    EXPECT_EQ(WriteThumbnail(&empty, &params_, kCodecAvc), 1);
    EXPECT_EQ(WriteThumbnail(nullptr, &params_, kCodecAvc), 1);
    EXPECT_EQ(WriteThumbnail(&empty, nullptr, kCodecAvc), 1);
}

TEST_F(Thumbnail, LeavesTheFileAloneUnlessThereIsAPictureToWrite) {
    g_decoder.size = {32, 32};
    write_file(output_, "old");
    g_decoder.status = 1;
    EXPECT_EQ(write({16, 16}), 1);
    g_decoder.has_planes = false;
    EXPECT_EQ(write({16, 16}), 1);
    g_decoder.status = 0;
    EXPECT_EQ(write({16, 16}), 0);  // a decoder's word without a picture is taken as it stands
    g_decoder.has_planes = true;
    crop_to({32, 32}, {16, 16, 0, 0});
    EXPECT_EQ(write({16, 16}), 1);
    crop_to({32, 32}, {0, 0, 4000000000u, 4000000000u});
    EXPECT_EQ(write({16, 16}), 1);
    crop_to({32, 32}, {});
    EXPECT_EQ(write({60000, 60000}), 1);  // 5.4 GB
    EXPECT_EQ(write({2147483646, 2147483646}), 1);
    EXPECT_EQ(read_file(output_), "old");
    crop_to({4096, 16}, {});
    EXPECT_EQ(write({160, 160}), 1);  // fitted to 160x0, which the JPEG library refuses
    EXPECT_EQ(read_file(output_), "");
    output_ = folder_.path("none/o.jpg");
    EXPECT_EQ(write({0, 0}), 1);
}

TEST_F(Thumbnail, RefusesSidesThatNoFileCanHave) {
    g_decoder.size = {8192, 16};
    write_file(output_, "old");
    EXPECT_EQ(write({65504, 200}), 1);
    EXPECT_EQ(read_file(output_), "");
    EXPECT_EQ(params_.width, 65504);
    EXPECT_EQ(write({65500, 200}), 0);
}

TEST_F(Thumbnail, FailsCleanlyWhenAnyAllocationFails) {
    const auto run = [&](PictureSize requested) {
        int n = 1;
        for (;; ++n) {
            write_file(output_, "old");
            fail_allocation(n);
            const int status = write(requested);
            const bool has_failed = has_allocation_failed();
            fail_allocation(0);
            EXPECT_EQ(g_memUsed, 0);
            if (!has_failed) return status == 0 ? n - 1 : -1;
            EXPECT_EQ(status, 1);
            if (status == 0) return -1;
        }
    };
    g_decoder.size = {47, 33};
    EXPECT_GE(run({0, 0}), 2);    // the picture and its new home
    EXPECT_GE(run({90, 90}), 2);  // the picture and the scaled one
    crop_to({48, 48}, {16, 0, 3, 0});
    EXPECT_GE(run({0, 0}), 3);  // the copy with room behind V as well
}

TEST_F(Thumbnail, TakesEverySizeOfPictureAndRequest) {
    static const int32_t kSides[] = {1,  2,  3,  7,  14, 15, 16, 17, 18,
                                     30, 31, 32, 33, 47, 48, 49, 64};
    static const int32_t kRequests[] = {0, 2, 4, 14, 16, 18, 30, 32, 46, 48, 50, 64, 130};
    for (const int32_t width : kSides) {
        for (const int32_t height : kSides) {
            g_decoder.size = {width, height};
            for (const int32_t w : kRequests) {
                for (const int32_t h : kRequests) write_away({w, h});
            }
        }
    }
}

TEST_F(Thumbnail, TakesEveryCropWindow) {
    for (const PictureSize grid : {PictureSize{16, 16}, {32, 48}, {48, 32}}) {
        for (uint32_t left = 0; left < 34; left += left < 18 ? 1 : 5) {
            for (uint32_t top = 0; top < 34; top += top < 18 ? 1 : 5) {
                for (const uint32_t rest : {0u, 1u, 2u, 3u, 8u}) {
                    crop_to(grid, {left, rest, top, rest});
                    const bool is_empty = left + rest >= static_cast<uint32_t>(grid.width) ||
                                          top + rest >= static_cast<uint32_t>(grid.height);
                    if (is_empty) {
                        ASSERT_EQ(write({16, 16}), 1);
                        continue;
                    }
                    for (const PictureSize requested :
                         {PictureSize{0, 0}, {16, 16}, {12, 10}, {64, 64}, {2, 46}}) {
                        write_away(requested);
                    }
                }
            }
        }
    }
}

TEST_F(Thumbnail, TakesTheLargestPictures) {
    static const PictureSize kCases[][2] = {
        {{4096, 2304}, {4095, 2303}}, {{65520, 16}, {2, 2}},        {{65520, 16}, {40000, 400}},
        {{16, 65520}, {400, 40001}},  {{65520, 48}, {65500, 1000}}, {{8191, 100}, {0, 0}},
        {{16, 4096}, {15, 3999}},
    };
    for (const auto& [picture, requested] : kCases) {
        g_decoder.size = picture;
        write_away(requested);
    }
}
