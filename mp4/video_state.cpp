// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/video_state.h"

#include "runtime/key_frame.h"

VideoState g_video_state;

void mp4_release_video_state() {
    VideoState* const state = &g_video_state;
    const int32_t length_prefix_size = state->length_prefix_size;
    *state = VideoState{};
    state->codec_kind = kCodecNone;
    state->length_prefix_size = length_prefix_size;
}
