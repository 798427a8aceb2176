// SPDX-License-Identifier: BSD-2-Clause
// The command line: eight positional arguments.
#pragma once

#include <stdint.h>
#include <stdio.h>

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
// Whether every number is in its range.
bool arguments_are_in_range(const Arguments& args);
// Whether the path ends as videos do.
bool arguments_is_video_name(const char* path);
// Whether the input is a regular file whose name has an accepted extension. Others are not opened:
// that alone can hold up a run, or wind a tape.
bool arguments_name_a_video(const Arguments& args);
// Whether the output is another file than the input, under whatever names.
bool arguments_spare_the_video(const Arguments& args);
void arguments_print_usage(FILE* out, const char* program);
