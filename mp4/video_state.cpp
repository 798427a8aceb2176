// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/video_state.h"

#include "runtime/key_frame.h"

VideoState g_video_state;

void mp4_release_video_state() {
    VideoState* const state = &g_video_state;
    const int32_t length_prefix_size = state->length_prefix_size;
    const int64_t work_left = state->work_left;
    *state = VideoState{};
    state->codec_kind = kCodecNone;
    state->length_prefix_size = length_prefix_size;
    state->work_left = work_left;
}

void mp4_grant_work(int64_t file_size) {
    constexpr int64_t kBase = 1 << 20;
    constexpr int64_t kPerByte = 6;
    constexpr int64_t kMost = INT64_MAX / kPerByte - kBase;
    g_video_state.work_left = kBase + kPerByte * (file_size < kMost ? file_size : kMost);
}

bool mp4_spend_work(uint64_t bytes) {
    int64_t* const left = &g_video_state.work_left;
    if (*left < 0 || bytes > static_cast<uint64_t>(*left)) {
        *left = 0;
        return false;
    }
    *left -= static_cast<int64_t>(bytes);
    return true;
}
