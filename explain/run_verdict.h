// SPDX-License-Identifier: BSD-2-Clause
// From the reasons that the parts of a run give to sentences.
#pragma once

#include <stdint.h>

#include "explain/box_list.h"
#include "explain/verdict.h"
#include "mp4/parse_context.h"
#include "tool/run_keystill.h"

// What the key frame table says of those that were to be collected.
struct WantedFrames {
    uint32_t largest;  // bytes
    uint32_t chosen_size;
    int64_t chosen_end;  // where the chosen one should end in the file
    bool is_in_fragments;
    bool has_base_data_offset;  // fragments state one: it is misread
    bool is_last_track;         // the video: of another last track samples may be taken
};

// Each leaves a verdict alone that is a failure already.
void explain_arguments(const Arguments& args, Verdict* verdict);
void explain_input(const Arguments& args, Verdict* verdict);
// What the boxes tell about a movie without key frames or tables or a codec. To be asked while the
// video state of the walk is there.
void explain_container(const BoxFacts& facts, const ParseContext& context, Verdict* verdict);
void explain_run(const ThumbnailRun& run, const WantedFrames& frames, int64_t file_size,
                 Verdict* verdict);
void explain_output(const Arguments& args, Verdict* verdict);

// Whether what stands where the output goes looks like a video. keystill does not mind.
bool explain_spoils_a_video(const Arguments& args);
