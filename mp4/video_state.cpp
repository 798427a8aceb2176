// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/video_state.h"

#include "runtime/key_frame.h"

static VideoState g_video_state;

void mp4_begin_walk(ParseContext* context) {
    *context = {};
    context->video = &g_video_state;
    mp4_release_video_state(context->video);
}

void mp4_release_video_state(VideoState* state) {
    const int32_t length_prefix_size = state->length_prefix_size;
    *state = VideoState{};
    state->codec_kind = kCodecNone;
    state->length_prefix_size = length_prefix_size;
}
