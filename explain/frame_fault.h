// SPDX-License-Identifier: BSD-2-Clause
// Why a key frame cannot be decoded: decodes it once more, step by step, and looks at what ended
// that.
#pragma once

#include <stdint.h>

#include "explain/avc_set_look.h"
#include "explain/verdict.h"
#include "runtime/key_frame.h"

struct FrameFault {
    Verdict verdict;  // no failure when the frame can be decoded, or when memory is short
    bool is_damage;   // the coded data breaks off or makes no sense, as where a file is cut off
};

// What the sequence and picture parameter set say that the decoder refuses.
void explain_avc_sets(const AvcFacts& facts, Verdict* verdict);

// Both leave the frame as it is.
void explain_avc_frame(const KeyFrame& frame, FrameFault* fault);
void explain_m4v_frame(const KeyFrame& frame, int32_t codec_kind, FrameFault* fault);
