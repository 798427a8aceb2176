// SPDX-License-Identifier: BSD-2-Clause
// Walks a file and collects its key frames. The inputs are those of the whole program, of whose
// six bytes of arguments two are used.
#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "runtime/owned.h"
#include "tool/key_frames.h"

void run_target(Choices* c) {
    c->bytes(3);
    KeyFrameRequest request = {};
    request.key_frame_count = 1 + static_cast<int32_t>(c->byte() % 16);
    request.clip_offset_percent = static_cast<int32_t>(c->byte() % 101);
    c->byte();
    const int32_t requested = request.key_frame_count;
    const Owned<KeyFrame> records = owned_calloc<KeyFrame>(static_cast<uint64_t>(requested));
    request.records = records.get();
    request.codec_kind = kCodecNone;
    GetKeyFrameMpeg4(store_file(make_file(c)), &request);
    for (int32_t i = 0; i < requested; ++i) {
        if (records[i].config) upnp_free(records[i].config);
        if (records[i].sample) upnp_free(records[i].sample);
    }
}
