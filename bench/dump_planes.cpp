// SPDX-License-Identifier: BSD-2-Clause
// usage: dump_planes FILE [PERCENT]
// Decodes the key frame that stands at that per cent of the clip (default 0), as keystill does, and
// writes its planes. Exit status 1 without any output when there is no picture.
#include <stdio.h>
#include <stdlib.h>

#include "bench/plane_dump.h"
#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame.h"
#include "tool/key_frames.h"

// Returns 0 and fills *picture, or 1.
static int decode_at(const char* path, int percent, DecodedPicture* picture) {
    KeyFrame record = {};
    KeyFrameRequest request = {};
    request.clip_offset_percent = percent;
    request.key_frame_count = 1;
    request.codec_kind = kCodecNone;
    const bool is_there = GetKeyFrameMpeg4(path, &request) == 0 && request.key_frame_count == 1 &&
                          key_frame_read(&request, 0, &record) == Refusal::kNone;
    const int result = is_there ? decode_key_frame(record, request.codec_kind, picture) : 1;
    key_frame_release(&record);
    return result;
}

int main(int argc, char** argv) {
    DecodedPicture picture = {};
    upnp_memory_init();
    if (argc < 2 || decode_at(argv[1], argc > 2 ? atoi(argv[2]) : 0, &picture) != 0) return 1;
    const int result = dump_picture(picture);
    upnp_free(picture.planes);
    if (g_memUsed != 0) fprintf(stderr, "%lld bytes were not released\n", (long long)g_memUsed);
    return result != 0 || g_memUsed != 0;
}
