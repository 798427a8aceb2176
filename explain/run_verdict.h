// SPDX-License-Identifier: BSD-2-Clause
// Why a run of keystill gives no thumbnail, in one sentence, with what to do about it.
#pragma once

#include <stdint.h>

#include "explain/avc_set_look.h"
#include "explain/box_list.h"
#include "explain/frame_fault.h"
#include "mp4/parse_context.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"

// What a real run came to, short of writing the file.
struct TrialRun {
    bool has_records;  // there was memory for as many as were asked for
    int32_t codec_kind;
    int32_t collected;  // key frames; -1 when the collection failed
    int32_t chosen;     // which of them, -1 for none
    bool is_read;       // the chosen one
    FrameFault fault;   // of the chosen one; when nothing could be written
    bool is_written;
    ThumbnailParams params;  // with the fitted size once it is decoded
};

// What the key frame table says of those that were to be collected.
struct WantedFrames {
    bool is_given_up;    // looking them up took too long
    bool is_broken_off;  // a fragment's header ends the collection
    uint32_t largest;    // bytes
    uint32_t chosen_size;
    int64_t chosen_end;  // where the chosen one should end in the file
    bool is_in_fragments;
    bool has_base_data_offset;  // fragments state one: it is misread
};

// Each leaves a verdict alone that is a failure already, in the order in which a run meets the
// reasons. The container's is to be asked while the video state of the walk is there.
void explain_arguments(const Arguments& args, Verdict* verdict);
void explain_input(const Arguments& args, Verdict* verdict);
void explain_container(const BoxFacts& facts, const ParseContext& context, Verdict* verdict);
void explain_trial(const TrialRun& trial, const WantedFrames& frames, const AvcFacts& avc,
                   int64_t file_size, Verdict* verdict);
void explain_output(const Arguments& args, Verdict* verdict);
// Whether what stands where the output goes looks like a video. keystill does not mind.
bool explain_spoils_a_video(const Arguments& args);
