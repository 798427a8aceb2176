// SPDX-License-Identifier: BSD-2-Clause
// The decoder instance: one zero-initialised block of the parts that decoding works on, and the
// steps that need more than one of them.
#pragma once

#include <stdint.h>

#include "avcdec/nal_unit.h"
#include "avcdec/parameter_set_store.h"
#include "avcdec/picture_in_progress.h"
#include "avcdec/slice_reader.h"

struct AvcDecoder {
    void* block;  // the allocation that holds the instance
    AvcSliceReader slice;
    AvcPictureInProgress picture;
    uint64_t time_stamp;  // of the target
    int32_t picture_count;
    uint8_t picture_flags;  // of the picture in progress, set by option bytes only
    uint8_t option_byte;    // of the current call
    NalHeader nal;          // of the current unit
    uint32_t option_flags;
    bool has_old_flags;  // kAvcOldFlags
    uint8_t option_table[32];
    AvcParameterSets sets;
    AvcRefused refused;  // why the last unit was
};

// Parse what stands after the NAL header that the reader stands on. Return 0, or 1 when it is
// refused; decoder->refused has the reason then.

// Parameter sets are stored; a record with the same id is replaced, and stays as it was when the
// new one is refused.
int avc_parse_sps(AvcBitReader* r, AvcDecoder* decoder);
int avc_parse_pps(AvcBitReader* r, AvcDecoder* decoder);

// The parameter sets of the slice become the active ones, and its header the slice reader's.
int avc_parse_slice_header(AvcBitReader* r, AvcDecoder* decoder);

// Makes a picture parameter set and the sequence parameter set that it names the active ones.
// Returns 1 when one of them is not stored or not usable, or the working arrays cannot be obtained.
int avc_activate_pps(AvcDecoder* decoder, uint32_t pic_parameter_set_id);

// Starts the contexts of the slice, and the engine at the byte on which the bit reader stands.
void cabac_init_slice(AvcDecoder* decoder);

// The working arrays, sized by the picture width alone. The parameter sets stay.
void avc_release_work(AvcDecoder* decoder);
