// SPDX-License-Identifier: BSD-2-Clause
// The run with a collector and a writer of the test's own in place of the real ones.
#include "tool/run_keystill.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/temp_folder.h"
#include "thumb/thumbnail.h"
#include "tool/key_frames.h"

static struct {
    int result = 0;
    int32_t reported = 0;             // what the collector says it filled
    std::vector<int32_t> sizes = {};  // what it fills; 0 leaves the record empty
    int32_t codec_kind = kCodecAvc;
    int written_size = -1;  // of the frame that the writer got
    ThumbnailParams params = {};
    int writer_result = 0;
} g_fake;

int GetKeyFrameMpeg4(const char*, KeyFrameRequest* request) {
    EXPECT_EQ(request->codec_kind, kCodecNone);
    EXPECT_EQ(request->clip_offset_percent, 10);
    for (size_t i = 0; i < g_fake.sizes.size(); ++i) {
        if (g_fake.sizes[i] == 0) continue;
        KeyFrame& record = request->records[i];
        record.config = static_cast<uint8_t*>(upnp_malloc(3));
        record.sample = static_cast<uint8_t*>(upnp_malloc(5));
        record.bytes_read = g_fake.sizes[i];
    }
    if (g_fake.result != 0) return g_fake.result;
    request->key_frame_count = g_fake.reported;
    request->codec_kind = g_fake.codec_kind;
    return 0;
}

int WriteThumbnail(const KeyFrame* record, ThumbnailParams* params, int32_t codec_kind) {
    EXPECT_EQ(codec_kind, g_fake.codec_kind);
    g_fake.written_size = record->bytes_read;
    g_fake.params = *params;
    return g_fake.writer_result;
}

class RunKeystill : public testing::Test {
 protected:
    RunKeystill() {
        write_file(input_, "");
        g_fake = {};
    }
    // Runs silently and leaves no memory behind, whatever comes out.
    int run(const char* key_frames) {
        const std::array<const char*, 9> argv = {"keystill", input_.c_str(), "o.jpg", "160", "120",
                                                 "85",       key_frames,     "10",    "50"};
        testing::internal::CaptureStderr();
        const int status = run_keystill(argv.size(), argv.data());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(g_memUsed, 0);
        return status;
    }
    TempFolder folder_;
    std::string input_ = folder_.path("in.mp4");
};

TEST_F(RunKeystill, HandsTheChosenFrameToTheWriter) {
    g_fake.sizes = {30, 0, 10, 20};
    g_fake.reported = 4;
    EXPECT_EQ(run("4"), 0);
    EXPECT_EQ(g_fake.written_size, 20);
    EXPECT_EQ(g_fake.params.quality, 85);
    EXPECT_EQ(g_fake.params.height, 120);
    g_fake.writer_result = 1;
    EXPECT_EQ(run("4"), 1);
}

TEST_F(RunKeystill, GivesUpWithoutAUsableCollection) {
    static const struct {
        int result;
        int32_t reported, codec_kind;
        std::vector<int32_t> sizes;
    } kCases[] = {
        {1, 2, kCodecAvc, {5, 6}}, {0, 2, kCodecNone, {5, 6}},   {0, 0, kCodecAvc, {}},
        {0, 5, kCodecAvc, {5, 6}}, {0, 3, kCodecAvc, {0, 0, 0}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        g_fake = {c.result, c.reported, c.sizes, c.codec_kind};
        EXPECT_EQ(run("4"), 1);
        EXPECT_EQ(g_fake.written_size, -1);
    }
}
