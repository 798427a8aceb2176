// SPDX-License-Identifier: BSD-2-Clause
// The parameter sets of a stream by their ids, and which of them are active.
#pragma once

#include <stdint.h>

#include "avcdec/parameter_sets.h"

// Zeros are an empty store.
struct AvcParameterSets {
    AvcSps* active_sps;  // into sps
    AvcPps* active_pps;  // into pps
    AvcSps* last_sps;    // into sps: the one parsed last
    uint8_t monochrome;  // of the last parsed SPS that coded a chroma format
    bool allows_more_formats;
    AvcSps* sps[kMaxSps];  // owned records, by id
    AvcPps* pps[kMaxPps];
};

// Read the parameter set after the NAL header that the reader stands on, and store it; a record
// with the same id is replaced in place. A refused set leaves the stored record as it was.
AvcRefused avc_store_sps(AvcParameterSets* sets, AvcBitReader* r);
AvcRefused avc_store_pps(AvcParameterSets* sets, AvcBitReader* r);

// Whether a picture parameter set and the sequence parameter set that it names can be made active.
AvcRefused avc_refusal_of_pps(const AvcParameterSets& sets, uint32_t pic_parameter_set_id);

void avc_release_sets(AvcParameterSets* sets);
