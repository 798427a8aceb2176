// SPDX-License-Identifier: BSD-2-Clause
// The whole program behind main.
#pragma once

#include "runtime/sandbox.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"

struct ThumbnailRun {
    Refusal refusal;
    int32_t codec_kind;      // kCodec...
    int32_t collected;       // key frames; 0 when the collection failed
    int32_t chosen;          // which of the collected key frames; -1 when it did not get to that
    ThumbnailParams params;  // as the writer left them
};

// Makes the thumbnail; the arguments have been checked. Memory is accounted for by the caller, and
// every block released on return. Not re-entrant.
ThumbnailRun make_thumbnail(const Arguments& args);

// Runs with main's arguments and returns the exit status: 0 when the thumbnail was written, else 1.
// Every accounted block is released on return. Not re-entrant.
int run_keystill(int argc, const char* const* argv,
                 Surroundings surroundings = Surroundings::kUnchanged);
