// SPDX-License-Identifier: BSD-2-Clause
// Walks a file and collects its key frames. The first two bytes choose how many and from where, and
// the rest the file.
#include "fuzz/choices.h"
#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "tool/key_frames.h"

const size_t g_file_start = 3;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    KeyFrameRequest request = {};
    request.key_frame_count = 1 + static_cast<int32_t>(choices.byte() % 16);
    request.clip_offset_percent = static_cast<int32_t>(choices.byte() % 101);
    const MemoryFile file(make_file(&choices));
    const int32_t requested = request.key_frame_count;
    Owned<KeyFrame> records = owned_calloc<KeyFrame>(static_cast<uint64_t>(requested));
    request.records = records.get();
    request.codec_kind = kCodecNone;
    GetKeyFrameMpeg4(file.path(), &request);
    for (int32_t i = 0; i < requested; ++i) {
        if (records[i].config) upnp_free(records[i].config);
        if (records[i].sample) upnp_free(records[i].sample);
    }
    records.reset();
    check_memory();
    return 0;
}
