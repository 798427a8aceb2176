// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/video_state.h"

#include "runtime/key_frame.h"

static VideoState g_video_state;

// Apart from the state, which is preset more often than tables are read.
static TableWindow g_table_windows[5];
static RandomAccessWindow g_random_access_window;

void mp4_begin_walk(ParseContext* context) {
    *context = {};
    context->video = &g_video_state;
    mp4_release_video_state(context->video);
}

void mp4_release_video_state(VideoState* state) {
    const int32_t length_prefix_size = state->length_prefix_size;
    *state = VideoState{};
    TableWindow* window = g_table_windows;
    for (FileTable* const table :
         {&state->time_to_sample, &state->sync_samples, &state->sample_to_chunk,
          &state->sample_sizes, &state->chunk_offsets}) {
        table->window = *window++;
    }
    state->fragments.table.window = g_random_access_window;
    state->codec_kind = kCodecNone;
    state->length_prefix_size = length_prefix_size;
}
