// SPDX-License-Identifier: BSD-2-Clause
// The decoders' reasons in sentences, with what to do about them. There is no other table of them.
#pragma once

#include <string>

#include "avcdec/avc_refusal.h"
#include "m4vdec/m4v_refusal.h"

enum class RefusalKind : unsigned char {
    kNone,
    kMemory,       // there may be a picture where there is more
    kUnsupported,  // fine, but of a kind that is not decoded
    kBadHeaders,   // of the stream as a whole: missing, damaged, or of an unknown profile
    kDamage,       // of the key frame: cut off, or not as the standard has it
};

struct Wording {
    RefusalKind kind;
    std::string sentence;
    std::string advice;  // lines, the cheapest first; "" when there is nothing to do
    const char* code;    // for programs: does not change when the sentence does
};

Wording wording_of(const AvcRefused& refused);
Wording wording_of(AvcRefusal reason);  // with {} in place of the value
Wording wording_of(M4vRefusal reason);
