// SPDX-License-Identifier: BSD-2-Clause
// Why a run of keystill gives no thumbnail, in one sentence, with what to do about it.
#pragma once

#include <stdint.h>

#include "thumb/key_frame.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"
#include "tool/explain_avc.h"
#include "tool/explain_boxes.h"

struct Verdict {
    bool is_failure;
    char reason[512];
    char advice[512];  // "" when there is nothing to do
};

// What a real run came to, short of writing the file.
struct TrialRun {
    int32_t codec_kind;
    int32_t collected;  // key frames; -1 when the collection failed
    int32_t chosen;     // which of them, -1 for none
    KeyFrame frame;     // sizes only: the blocks are gone
    AvcSlice slice;     // what the chosen frame starts with; H.264 only
    bool is_decoded;
    bool is_written;
    ThumbnailParams params;  // with the fitted size once it is decoded
};

// Where the chosen sample should end, against the end of the file.
struct SampleEnd {
    int64_t stated;
    int64_t file_size;
};

// Each leaves a verdict alone that is a failure already, in the order in which a run meets the
// reasons. The container's is to be asked while the video state of the walk is there.
void explain_arguments(const Arguments& args, Verdict* verdict);
void explain_input(const Arguments& args, Verdict* verdict);
void explain_container(const BoxFacts& facts, int64_t file_size, Verdict* verdict);
void explain_trial(const TrialRun& trial, const AvcFacts& avc, const SampleEnd& end,
                   Verdict* verdict);
void explain_output(const Arguments& args, Verdict* verdict);
