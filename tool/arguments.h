// SPDX-License-Identifier: BSD-2-Clause
// The command line: eight positional arguments.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "tool/refusal.h"

struct Arguments {
    const char* input_path;
    const char* output_path;
    int32_t width;                // pixels, even; 0 takes the picture's
    int32_t height;               // pixels, even; 0 takes the picture's
    int32_t quality;              // JPEG, 0 to 100
    int32_t key_frame_count;      // to collect, at least 1
    int32_t clip_offset_percent;  // where collection starts, 0 to 100
    int32_t size_percentile;      // of the coded sizes, 0 to 100
};

// Takes the arguments apart; numbers are read as strtol does where long has 32 bits. Returns 1
// when there are too few of them.
int arguments_read(int argc, const char* const* argv, Arguments* args);
// Whether the path ends as videos do.
bool arguments_is_video_name(const char* path);
// Why there is nothing to try: a number out of its range, an input that is no regular file with the
// name of a video, an output that is the input under whatever name. Neither file is opened: that
// alone can hold up a run, or wind a tape.
Refusal arguments_refusal(const Arguments& args);
void arguments_print_usage(FILE* out, const char* program);
