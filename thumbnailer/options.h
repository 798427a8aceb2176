// SPDX-License-Identifier: BSD-2-Clause
// The command line. It takes what the usual video thumbnailers of desktops take, so that this one
// can stand in for them.
#pragma once

#include <stdint.h>

#include <string>

#include "picture/display_size.h"
#include "picture/picture_file.h"

struct StartTime {
    int percent = 10;      // of the duration, 0 to 100 ...
    int64_t time_us = -1;  // ... unless this is 0 or more
};

struct Options {
    std::string input;
    std::string output;  // "-": standard output
    SizeLimit size = {128, 128};
    StartTime start;
    int quality = 80;  // of a JPEG file, 0 to 100
    PictureFormat format = PictureFormat::kPng;
    int frames = 5;       // key frames to choose among, 1 to kMostFrames
    int percentile = 70;  // which of them, by coded size, 0 to 100
    bool keeps_orientation_as_stored = false;
    std::string fallback = "none";  // "none", "auto" or a command
};

constexpr int kMostFrames = 1000;

enum class OptionsOutcome { kRun, kHelp, kVersion, kWrong };

// Reads the command line. With kWrong, *complaint says what is wrong.
OptionsOutcome read_options(int argc, char* const* argv, Options* options, std::string* complaint);

const char* usage_text();
