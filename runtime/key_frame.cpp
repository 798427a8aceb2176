// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/key_frame.h"

#include "runtime/accounted_memory.h"

static void release_block(uint8_t** block) {
    if (*block) upnp_free(*block);
    *block = nullptr;
}

void key_frame_release(KeyFrame* frame) {
    release_block(&frame->config);
    release_block(&frame->sample);
}
