// SPDX-License-Identifier: BSD-2-Clause
// Why a run gives no thumbnail, in the order in which a run meets the reasons. What the decoders
// and the writer of the picture have to say is theirs.
#pragma once

#include <stdint.h>

enum class Refusal : uint8_t {
    kNone,

    // The arguments.
    kTooFewArguments,
    kNegativeSide,
    kOddSide,
    kQuality,         // outside 0 to 100
    kKeyFrameCount,   // below 1
    kClipOffset,      // outside 0 to 100
    kSizePercentile,  // outside 0 to 100
    kNoInput,         // the system does not report on it
    kIrregularInput,  // a folder, pipe or device
    kInputName,       // no extension of a video
    kOutputIsInput,
    kTooManyKeyFrames,

    // The container.
    kInputNotOpened,
    kNoBoxes,          // not even one
    kBoxesGivenUp,     // the walk took more work than any film
    kNoKeyFrameTable,  // or an empty one, or an empty list of fragments
    kNoSampleTables,
    kNoConfiguration,  // of the decoder
    kTooManyFragments,
    kFragmentHeader,    // there is none where the list of fragments says
    kTablesGivenUp,     // looking up key frames took more work than any film
    kKeyFrameTooLarge,  // to be obtained, by its stated size
    kOtherCodec,        // than those that are decoded, or a protected track
    kNoKeyFrame,        // all have size 0
    kKeyFrameTooLong,   // for any picture
    kNoMemory,

    kNotWritten,  // ThumbnailFailure says why
};
