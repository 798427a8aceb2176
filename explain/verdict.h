// SPDX-License-Identifier: BSD-2-Clause
// Why there is no thumbnail: a code, one sentence, and what to do about it. What the decoders
// refuse has its sentences in wording/; all other reasons are here.
#pragma once

#include <stdint.h>

#include <initializer_list>
#include <string>

#include "wording/decoder_wording.h"

enum class Reason : uint8_t {
    kNone,

    // The arguments, and the files that they name.
    kTooFewArguments,
    kNegativeSide,
    kOddSide,
    kPercentage,
    kKeyFrameCount,
    kNoInput,
    kFolderAsInput,
    kDeviceAsInput,
    kInputName,
    kInputNotOpened,
    kInputTooShort,
    kTooManyKeyFrames,
    kOutputIsInput,
    kFolderAsOutput,
    kOutputNotCreated,
    kNoAnswer,

    // The movie.
    kOtherKindOfFile,
    kNotAMovie,
    kBoxesBroken,
    kBoxesGivenUp,
    kCutBeforeIndex,
    kNoIndex,
    kIndexCut,
    kFragmentsCut,
    kIndexDamaged,
    kNoVideo,
    kTrackBoxSkipped,
    kMetadataFirst,
    kVideoNotReached,

    // The codec.
    kProtected,
    kNoCodec,
    kOtherCodec,
    kOtherCodecOfLastTrack,
    kDescriptionUnreadable,
    kNoAvcConfiguration,
    kNoSequenceSet,
    kNoPictureSet,
    kOtherCodecInMpeg4,
    kNoMpeg4Configuration,
    kMpeg4ConfigurationElsewhere,
    kMpeg4ConfigurationUnknown,
    kNoH263Configuration,

    // The key frames.
    kNoRandomAccessTables,
    kLastTrackNotVideo,
    kNoRandomAccessOfVideo,
    kRandomAccessEmpty,
    kRandomAccessSkipped,
    kTooManyFragments,
    kFragmentHeader,
    kBaseDataOffset,
    kNoSizesInFragments,
    kNoPictures,
    kNoKeyFrameTable,
    kKeyFrameTableSkipped,
    kKeyFrameTableEmpty,
    kLargeOffsets,
    kCompactSizes,
    kConstantSize,
    kTablesMissing,
    kTablesGivenUp,
    kAllEmpty,
    kKeyFrameTooLarge,
    kKeyFrameTooLong,
    kKeyFrameCut,

    // The picture.
    kNothingVisible,
    kSide,
    kNotWritten,
    kNoMemory,
};
constexpr Reason kLastReason = Reason::kNoMemory;

// Code, sentence and advice as they stand in the table, with {} for values.
Wording wording_of(Reason reason);

struct Verdict {
    bool is_failure = false;
    const char* code = "";  // of the reason, for programs
    std::string sentence;
    std::string advice;  // lines, the cheapest first; "" when there is nothing to do
};

// Fills the verdict unless it is a failure already: the first reason counts. The values take the
// places in the sentence, then those in the advice; they have to be printable.
void verdict_fail(Verdict* verdict, Reason reason, std::initializer_list<std::string> values = {});
void verdict_fail(Verdict* verdict, const Wording& wording);
