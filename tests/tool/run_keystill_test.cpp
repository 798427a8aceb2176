// SPDX-License-Identifier: BSD-2-Clause
// The run with a collector and a writer of the test's own in place of the real ones.
#include "tool/run_keystill.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/temp_folder.h"
#include "thumb/thumbnail.h"
#include "tool/key_frames.h"

static constexpr int32_t kUnreadable = 77;  // bytes

static struct {
    int result = 0;
    int32_t reported = 0;             // what the collector says it filled
    std::vector<int32_t> sizes = {};  // of the frames that it lists
    int32_t codec_kind = kCodecAvc;
    int writer_result = 0;
    int written_size = -1;  // of the frame that the writer got
} g_fake;

int GetKeyFrameMpeg4(const char*, KeyFrameRequest* request) {
    EXPECT_EQ(request->codec_kind, kCodecNone);
    EXPECT_EQ(request->clip_offset_percent, 10);
    request->list.runs = owned_malloc<KeyFrameRun>(g_fake.sizes.size());
    for (const int32_t size : g_fake.sizes) {
        request->list.runs[request->list.run_count++] = {0, size, 1, size};
    }
    if (g_fake.result != 0) {
        request->refusal = Refusal::kNoBoxes;
        return g_fake.result;
    }
    request->key_frame_count = g_fake.reported;
    request->codec_kind = g_fake.codec_kind;
    return 0;
}

Refusal key_frame_read(const KeyFrameRequest* request, int32_t index, KeyFrame* record) {
    *record = {};
    record->config = static_cast<uint8_t*>(upnp_malloc(3));
    if (g_fake.sizes[index] == kUnreadable) return Refusal::kKeyFrameTooLong;
    record->sample = static_cast<uint8_t*>(upnp_malloc(5));
    record->bytes_read = request->list.runs[index].bytes_read;
    return Refusal::kNone;
}

int WriteThumbnail(const KeyFrame* record, ThumbnailParams* params, int32_t codec_kind) {
    EXPECT_EQ(codec_kind, g_fake.codec_kind);
    EXPECT_EQ(params->quality, 85);
    EXPECT_EQ(params->height, 120);
    g_fake.written_size = record->bytes_read;
    return g_fake.writer_result;
}

TEST(RunKeystill, HandsTheChosenFrameToTheWriterOrGivesUp) {
    const TempFolder folder;
    const std::string input = folder.path("in.mp4");
    const char* const argv[] = {"keystill", input.c_str(), "o.jpg", "160", "120",
                                "85",       "4",           "10",    "50"};
    write_file(input, "");
    // clang-format off
    static const struct {
        decltype(g_fake) fake; int status, written_size;
    } kCases[] = {
        {{0, 3, {30, 10, 20}}, 0, 20}, {{0, 3, {30, 10, 20}, kCodecAvc, 1}, 1, 20},
        {{1, 2, {5, 6}}, 1, -1}, {{0, 2, {5, 6}, kCodecNone}, 1, -1}, {{0, 0, {}}, 1, -1},
        {{0, 5, {5, 6}}, 1, -1}, {{0, 3, {kUnreadable, 7, kUnreadable}}, 1, -1},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        g_fake = c.fake;
        testing::internal::CaptureStderr();
        EXPECT_EQ(run_keystill(9, argv), c.status);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(g_fake.written_size, c.written_size);
        EXPECT_EQ(g_memUsed, 0);
    }
}
