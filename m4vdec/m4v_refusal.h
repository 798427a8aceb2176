// SPDX-License-Identifier: BSD-2-Clause
// Why the MPEG-4 Part 2 / H.263 decoder does not decode something.
#pragma once

#include <stdint.h>

enum class M4vRefusal : uint8_t {
    kNone,  // it was decoded
    kNoMemory,

    // The sample as a whole.
    kNoPicture,       // it has no picture start code
    kNoLayer,         // a VOP, but no video object layer header, which gives its size
    kSizeChange,      // its headers give another size than the one that the output was made for
    kSampleTooShort,  // for a picture of that size

    // What a video object layer (14496-2 6.2.3) or its sequence announces.
    kDamagedLayer,     // cut off, or with values that are not allowed
    kStudioProfile,    // another syntax
    kFineGranularity,  // fine granularity scalability
    kScalability,      // spatial or temporal
    kShape,            // other than a rectangle
    kStaticSprite,
    kSampleDepth,  // other than 8 bits, or a quantiser of other than 5
    kNewpred,

    // The picture's own header.
    kNotIntra,           // predicted from other pictures
    kNotCoded,           // vop_coded is 0: another picture is repeated
    kReducedResolution,  // 14496-2 vop_reduced_resolution, H.263 Annex Q
    kResampling,         // H.263 Annex P
    kArithmeticCoding,   // H.263 Annex E
    kBackChannel,        // H.263 Annex N with messages of a back-channel
    kDamagedHeader,      // cut off, or with values that are not allowed

    // Packets, groups of blocks, slices and macroblocks.
    kCutOff,       // the data ends within the picture
    kDamagedData,  // a code that does not exist, or values that are not allowed
};
constexpr M4vRefusal kM4vLastRefusal = M4vRefusal::kDamagedData;
