// SPDX-License-Identifier: BSD-2-Clause
#include "bench/plane_dump.h"

#include <stdio.h>

static int write_plane(const uint8_t* samples, uint32_t width, uint32_t height, uint32_t pitch) {
    for (; height > 0; --height, samples += pitch) {
        if (fwrite(samples, 1, width, stdout) != width) return 1;
    }
    return 0;
}

int dump_picture(const DecodedPicture& picture) {
    fprintf(stderr, "size %u %u crop %u %u %u %u\n", picture.width, picture.height,
            picture.crop_left, picture.crop_right, picture.crop_top, picture.crop_bottom);
    const uint32_t width = (picture.width + 1) / 2;
    const uint32_t height = (picture.height + 1) / 2;
    const uint32_t pitch = picture.stride / 2;
    return write_plane(picture.planes, picture.width, picture.height, picture.stride) ||
           write_plane(picture.planes + picture.u_offset, width, height, pitch) ||
           write_plane(picture.planes + picture.v_offset, width, height, pitch) ||
           fflush(stdout) != 0;
}
