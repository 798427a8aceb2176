// SPDX-License-Identifier: BSD-2-Clause
// usage: dump_planes FILE [PERCENT]
// Decodes the key frame that stands at that per cent of the clip (default 0) and writes its planes
// Y, U, V to standard output without padding: the whole macroblock grid for H.264, the picture
// itself with chroma rounded up for MPEG-4 and H.263. Standard error gets
//   size WIDTH HEIGHT crop LEFT RIGHT TOP BOTTOM
// Exit status 1 without any output when there is no picture.
#include <stdio.h>
#include <stdlib.h>

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
                          key_frame_read(&request, 0, &record) == 0;
    const int result = is_there ? decode_key_frame(record, request.codec_kind, picture) : 1;
    key_frame_release(&record);
    return result;
}

static int write_plane(const uint8_t* samples, uint32_t width, uint32_t height, uint32_t pitch) {
    for (; height > 0; --height, samples += pitch) {
        if (fwrite(samples, 1, width, stdout) != width) return 1;
    }
    return 0;
}

static int write_planes(const DecodedPicture& picture) {
    const uint32_t width = (picture.width + 1) / 2;
    const uint32_t height = (picture.height + 1) / 2;
    const uint32_t pitch = picture.stride / 2;
    return write_plane(picture.planes, picture.width, picture.height, picture.stride) ||
           write_plane(picture.planes + picture.u_offset, width, height, pitch) ||
           write_plane(picture.planes + picture.v_offset, width, height, pitch) ||
           fflush(stdout) != 0;
}

int main(int argc, char** argv) {
    DecodedPicture picture = {};
    upnp_memory_init();
    if (argc < 2 || decode_at(argv[1], argc > 2 ? atoi(argv[2]) : 0, &picture) != 0) return 1;
    fprintf(stderr, "size %u %u crop %u %u %u %u\n", picture.width, picture.height,
            picture.crop_left, picture.crop_right, picture.crop_top, picture.crop_bottom);
    const int result = write_planes(picture);
    upnp_free(picture.planes);
    if (g_memUsed != 0) fprintf(stderr, "%lld bytes were not released\n", (long long)g_memUsed);
    return result != 0 || g_memUsed != 0;
}
