// SPDX-License-Identifier: BSD-2-Clause
// Pictures and thumbnails of every small size and some large ones, through crop, fit, scale, pad
// and the JPEG writer, behind a decoder of the test's own.
#include <gtest/gtest.h>

#include <string>

#include "avcdec/decode_key_frame_avc.h"
#include "runtime/owned.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/temp_folder.h"
#include "thumb/decode_key_frame_mpeg4.h"
#include "thumb/fit.h"
#include "thumb/thumbnail.h"

static PictureSize g_size;

int DecodeKeyFrameMpeg4(const KeyFrame*, DecodedPicture* picture, int32_t) {
    const uint32_t pitch = static_cast<uint32_t>(align16(g_size.width));
    const uint32_t luma = pitch * static_cast<uint32_t>(align16(g_size.height));
    *picture = {};
    picture->planes = owned_calloc<uint8_t>(uint64_t{luma} * 3 / 2).release();
    if (!picture->planes) return 1;
    picture->width = static_cast<uint32_t>(g_size.width);
    picture->height = static_cast<uint32_t>(g_size.height);
    picture->stride = pitch;
    picture->u_offset = luma;
    picture->v_offset = luma / 4 * 5;
    return 0;
}
int DecodeKeyFrameAvc(const AvcFrameRequest*, DecodedPicture*) { return 1; }

static int write(PictureSize picture, PictureSize requested, const std::string& path,
                 PictureSize* fitted) {
    uint8_t bytes[4] = {};
    const KeyFrame record = {bytes, 4, bytes, 4, 0, 4};
    ThumbnailParams params = {path.c_str(), 50, requested.width, requested.height};
    g_size = picture;
    upnp_memory_init();
    const int status = WriteThumbnail(&record, &params, kCodecMpeg4);
    upnp_memory_exit();
    EXPECT_EQ(g_memUsed, 0);
    *fitted = {params.width, params.height};
    return status;
}

static void expect_written(PictureSize picture, PictureSize requested) {
    PictureSize fitted;
    const int status = write(picture, requested, "/dev/null", &fitted);
    const bool is_possible = fitted.width > 0 && fitted.height > 0;
    EXPECT_EQ(status, is_possible ? 0 : 1)
        << picture.width << "x" << picture.height << " into " << requested.width << "x"
        << requested.height << " gives " << fitted.width << "x" << fitted.height;
}

TEST(Limits, EverySmallPictureFitsIntoAnyThumbnail) {
    static const PictureSize kRequested[] = {{0, 0}, {2, 2}, {16, 64}, {30, 46}, {64, 16}};
    for (int32_t width = 1; width <= 64; ++width) {
        for (int32_t height = 1; height <= 64; ++height) {
            for (const PictureSize requested : kRequested) {
                expect_written({width, height}, requested);
            }
        }
    }
}

TEST(Limits, AnyPictureFitsIntoEverySmallThumbnail) {
    static const PictureSize kPictures[] = {{1, 1},   {17, 33},  {64, 48},
                                            {640, 2}, {2, 1080}, {353, 289}};
    for (int32_t width = 2; width <= 64; width += 2) {
        for (int32_t height = 2; height <= 64; height += 2) {
            for (const PictureSize picture : kPictures) expect_written(picture, {width, height});
        }
    }
}

TEST(Limits, LargeSizesAreWrittenOrRefused) {
    static const struct {
        PictureSize picture, requested, want;
        int status;
    } kCases[] = {
        {{4096, 4080}, {4096, 4096}, {4096, 4080}, 0},
        {{4096, 16}, {65534, 2}, {512, 2}, 0},
        {{65520, 16}, {65534, 600}, {65534, 16}, 1},  // JPEG ends at 65500
        {{65520, 16}, {65500, 600}, {65500, 15}, 0},
        {{65520, 16}, {65534, 65534}, {268361728, 65534}, 1},  // a ratio below 0.01 does not bind
        {{16, 65520}, {65534, 4096}, {1, 4096}, 0},
        {{65520, 2}, {64, 64}, {64, 0}, 1},
        {{1, 1}, {4096, 4096}, {4096, 4096}, 0},
        {{1, 1}, {65534, 65534}, {65534, 65534}, 1},
        {{16, 16}, {2147483646, 2147483646}, {INT32_MAX, 2147483646}, 1},
    };
    const TempFolder folder;
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.picture.width << "x" << c.picture.height << " into "
                                        << c.requested.width << "x" << c.requested.height);
        PictureSize fitted;
        const std::string path = folder.path("out.jpg");
        EXPECT_EQ(write(c.picture, c.requested, path, &fitted), c.status);
        EXPECT_EQ(fitted.width, c.want.width);
        EXPECT_EQ(fitted.height, c.want.height);
        if (c.status != 0) continue;
        const JpegImage image = read_jpeg(read_file(path));
        EXPECT_EQ(image.width, c.want.width);
        EXPECT_EQ(image.height, c.want.height);
    }
}
