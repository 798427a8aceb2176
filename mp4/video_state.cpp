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

static void grant(int64_t work, uint32_t read_work) {
    g_video_state.work_left = work;
    g_video_state.read_work = read_work;
}

void mp4_grant_walk() { grant(kWalkWork, 400); }

void mp4_grant_look_ups() { grant(kLookUpWork, 6000); }

bool mp4_spend_work(uint64_t work) {
    int64_t* const left = &g_video_state.work_left;
    if (*left < 0) return false;
    *left = work > static_cast<uint64_t>(*left) ? -1 : *left - static_cast<int64_t>(work);
    return *left >= 0;
}

bool mp4_spend_read() { return mp4_spend_work(g_video_state.read_work); }

bool mp4_is_work_used_up() { return g_video_state.work_left < 0; }
