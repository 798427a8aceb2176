// SPDX-License-Identifier: BSD-2-Clause
// What the run makes of a collector that is not to be trusted, as the real one is.
#include "tool/run_keystill.h"

#include <gtest/gtest.h>

#include "runtime/accounted_memory.h"
#include "tool/key_frames.h"

static int32_t g_reported;  // key frames that the collector says it found
static int32_t g_codec_kind;
static int g_reads;  // of key frames

int GetKeyFrameMpeg4(const char*, KeyFrameRequest* request) {
    request->list.runs = owned_malloc<KeyFrameRun>(1);
    request->list.runs[request->list.run_count++] = {0, 5, 1, 5};
    request->codec_kind = g_codec_kind;
    request->key_frame_count = g_reported;
    return 0;
}

Refusal key_frame_read(const KeyFrameRequest*, int32_t, KeyFrame* record) {
    ++g_reads;
    *record = {};
    record->config = static_cast<uint8_t*>(upnp_malloc(3));
    return Refusal::kNoMemory;
}

TEST(RunKeystill, TakesNoMoreKeyFramesThanItAskedForAndReleasesThem) {
    static const struct {
        int32_t codec_kind, reported;
        Refusal want;  // kNoMemory: it was read
    } kCases[] = {{kCodecAvc, -1, Refusal::kNoKeyFrame}, {kCodecAvc, 0, Refusal::kNoKeyFrame},
                  {kCodecAvc, 1, Refusal::kNoMemory},    {kCodecAvc, 4, Refusal::kNoMemory},
                  {kCodecAvc, 5, Refusal::kNoKeyFrame},  {kCodecNone, 4, Refusal::kOtherCodec}};
    for (const auto& c : kCases) {
        g_codec_kind = c.codec_kind;
        g_reported = c.reported;
        g_reads = 0;
        const Arguments args = {"/dev/null", "/dev/null", 160, 120, 85, 4, 10, 50};
        EXPECT_EQ(make_thumbnail(args).refusal, c.want) << c.reported;
        EXPECT_EQ(g_reads, c.want == Refusal::kNoMemory ? 1 : 0) << c.reported;
        EXPECT_EQ(g_memUsed, 0);
    }
}
