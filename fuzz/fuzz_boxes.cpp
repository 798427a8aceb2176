// SPDX-License-Identifier: BSD-2-Clause
// Walks a file and collects its key frames. The inputs are those of the whole program, of whose
// six bytes of arguments two are used.
#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "tool/key_frames.h"

void run_target(Choices* c) {
    c->bytes(3);
    KeyFrameRequest request = {};
    request.key_frame_count = 1 + static_cast<int32_t>(c->byte() % 16);
    request.clip_offset_percent = static_cast<int32_t>(c->byte() % 101);
    c->byte();
    request.codec_kind = kCodecNone;
    if (GetKeyFrameMpeg4(store_file(make_file(c)), &request) != 0) return;
    for (int32_t i = 0; i < request.key_frame_count; ++i) {
        KeyFrame record;
        key_frame_read(&request, i, &record);
        key_frame_release(&record);
    }
}
