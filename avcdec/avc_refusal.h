// SPDX-License-Identifier: BSD-2-Clause
// Why a key frame is refused. Each reason is set where the refusal happens, and each is one that a
// user can be told.
#pragma once

#include <stdint.h>

enum class AvcRefusal : uint8_t {
    kNone,
    kNoMemory,
    // The lengths in front of NAL units. What is around the run is refused by the decoder's caller.
    kNoConfiguration,  // parameter sets of fewer than 4 bytes
    kNalLengthSize,    // length fields of other than 1, 2 or 4 bytes; value: their size
    kSampleTooShort,   // for one NAL unit
    kParameterSetRun,  // the lengths of the parameter sets do not fit into their run
    kSampleRun,        // the same for the sample
    // Sequence parameter sets
    kChromaFormat,  // value: chroma_format_idc, 2 for 4:2:2, 3 for 4:4:4
    kBitDepth,      // value: bits of a sample
    kLossless,
    kInterlaced,
    kTooManyMacroblocks,  // a side above 4095 or a picture above 65535
    kSequenceSet,         // damaged
    // Picture parameter sets
    kSliceGroups,
    kPictureSet,  // damaged
    // Slices
    kNoSequenceSet,        // a slice came before any
    kNoPictureSet,         // the slice's set or that set's is not there; value: its id
    kOtherSequenceSet,     // not the one that the picture was made for; value: its id
    kPictureSize,          // that one was replaced by one of another size
    kPredictedSlice,       // value: slice_type, 0 for P, 1 for B
    kSwitchingSlice,       // value: slice_type, 3 for SP, 4 for SI
    kIdrWithoutReference,  // nal_ref_idc 0
    kRedundantSlice,
    kSliceHeader,   // damaged
    kSliceOverlap,  // the slice begins before the end of the one in front of it
    kSliceData,     // damaged
    kSliceCutOff,   // the data ends before its last macroblock
    // The end of the sample
    kNoSlice,
    kSlicesMissing,
};
constexpr AvcRefusal kAvcLastRefusal = AvcRefusal::kSlicesMissing;

struct AvcRefused {
    AvcRefusal reason = AvcRefusal::kNone;
    uint32_t value = 0;  // what the reason says, else 0

    explicit operator bool() const { return reason != AvcRefusal::kNone; }
};
