// SPDX-License-Identifier: BSD-2-Clause
#include "wording/decoder_wording.h"

#include <stddef.h>

#include <iterator>

#include "wording/advice.h"
#include "wording/fill_in.h"

template <typename Reason>
struct WordingRow {
    Reason reason;
    const char* code;
    RefusalKind kind;
    const char* sentence;
    const char* advice;
};

// Whether there is a row for each enumerator up to the last, in their order.
template <typename Reason, size_t kCount>
static consteval bool is_whole(const WordingRow<Reason> (&rows)[kCount], Reason last) {
    for (size_t i = 0; i < kCount; ++i) {
        if (rows[i].reason != static_cast<Reason>(i)) return false;
    }
    return kCount == static_cast<size_t>(last) + 1;
}

static constexpr char kNoMemory[] = "There is not enough memory.";

// clang-format off
// {} stands for the value.
static constexpr WordingRow<AvcRefusal> kAvcRows[] = {
    {AvcRefusal::kNone, "", RefusalKind::kNone, "", kNothingToDo},
    {AvcRefusal::kNoMemory, "no-memory", RefusalKind::kMemory, kNoMemory, kAskForLess},
    {AvcRefusal::kNoConfiguration, "h264-no-configuration", RefusalKind::kBadHeaders,
     "The H.264 decoder configuration has no parameter sets.", kEncodeAgain},
    {AvcRefusal::kNalLengthSize, "h264-nal-length-size", RefusalKind::kUnsupported,
     "The stream's units have lengths of {} bytes, which are not read.", kCopyStreams},
    {AvcRefusal::kSampleTooShort, "h264-sample-too-short", RefusalKind::kDamage,
     "The key frame has too few bytes for a picture.", kLookElsewhere},
    {AvcRefusal::kParameterSetRun, "h264-parameter-set-run", RefusalKind::kBadHeaders,
     "The lengths of the H.264 parameter sets do not fit into the decoder configuration.",
     kCopyStreams},
    {AvcRefusal::kSampleRun, "h264-sample-run", RefusalKind::kDamage,
     "The lengths of the key frame's units do not fit into it: its data is cut off or damaged.",
     kLookElsewhere},
    {AvcRefusal::kChromaFormat, "h264-chroma-format", RefusalKind::kUnsupported,
     "The H.264 stream is {}; only 4:2:0 and monochrome pictures are decoded.", kEncodeAgain},
    {AvcRefusal::kBitDepth, "h264-bit-depth", RefusalKind::kUnsupported,
     "The H.264 stream has {}-bit samples; only 8-bit ones are decoded.", kEncodeAgain},
    {AvcRefusal::kLossless, "h264-lossless", RefusalKind::kUnsupported,
     "The H.264 stream is lossless, which is not decoded.", kEncodeAgain},
    {AvcRefusal::kInterlaced, "h264-interlaced", RefusalKind::kUnsupported,
     "The H.264 stream is interlaced; only progressive pictures are decoded.", kDeinterlace},
    {AvcRefusal::kTooManyMacroblocks, "h264-too-many-macroblocks", RefusalKind::kUnsupported,
     "The pictures are too large: 65535 blocks of 16x16 samples are the most.", kEncodeAgain},
    {AvcRefusal::kSequenceSet, "h264-sequence-set", RefusalKind::kBadHeaders,
     "The H.264 sequence parameter set is damaged, or of an unknown profile.", kEncodeAgain},
    {AvcRefusal::kSliceGroups, "h264-slice-groups", RefusalKind::kUnsupported,
     "The H.264 stream has slice groups, which are not decoded.", kNothingToDo},
    {AvcRefusal::kPictureSet, "h264-picture-set", RefusalKind::kBadHeaders,
     "The H.264 picture parameter set is damaged.", kEncodeAgain},
    {AvcRefusal::kNoSequenceSet, "h264-no-sequence-set", RefusalKind::kBadHeaders,
     "Neither the key frame nor the file's avcC has an H.264 sequence parameter set.",
     kEncodeAgain},
    {AvcRefusal::kNoPictureSet, "h264-no-picture-set", RefusalKind::kBadHeaders,
     "The key frame needs picture parameter set {}, which neither it nor the file's avcC has whole.",
     kEncodeAgain},
    {AvcRefusal::kOtherSequenceSet, "h264-other-sequence-set", RefusalKind::kUnsupported,
     "The key frame uses sequence parameter set {}; only the first one is used.", kEncodeAgain},
    {AvcRefusal::kPictureSize, "h264-picture-size", RefusalKind::kBadHeaders,
     "The key frame's sequence parameter set was replaced by one of another picture size.",
     kEncodeAgain},
    {AvcRefusal::kPredictedSlice, "h264-predicted-slice", RefusalKind::kUnsupported,
     "The key frame is no intra picture but a recovery point made of predicted slices ({}).",
     kEncodeAgain},
    {AvcRefusal::kSwitchingSlice, "h264-switching-slice", RefusalKind::kUnsupported,
     "The key frame has switching slices ({}), which are not decoded.", kEncodeAgain},
    {AvcRefusal::kIdrWithoutReference, "h264-idr-without-reference", RefusalKind::kUnsupported,
     "The key frame is marked as one that no picture refers to (nal_ref_idc 0), which H.264 forbids "
     "for its kind (IDR).", kEncodeAgain},
    {AvcRefusal::kRedundantSlice, "h264-redundant-slice", RefusalKind::kUnsupported,
     "The key frame has redundant slices, which are not decoded.", kEncodeAgain},
    {AvcRefusal::kSliceHeader, "h264-slice-header", RefusalKind::kDamage,
     "A slice header of the key frame is damaged.", kLookElsewhere},
    {AvcRefusal::kSliceOverlap, "h264-slice-overlap", RefusalKind::kDamage,
     "The slices of the key frame overlap: one starts before the end of the one in front of it.",
     kLookElsewhere},
    {AvcRefusal::kSliceData, "h264-slice-data", RefusalKind::kDamage,
     "The coded data of a slice of the key frame is damaged.", kLookElsewhere},
    {AvcRefusal::kSliceCutOff, "h264-slice-cut-off", RefusalKind::kDamage,
     "The coded data of a slice of the key frame ends before its last macroblock.",
     kLookElsewhere},
    {AvcRefusal::kNoSlice, "h264-no-slice", RefusalKind::kDamage,
     "The key frame holds no picture: it has no slice.", kLookElsewhere},
    {AvcRefusal::kSlicesMissing, "h264-slices-missing", RefusalKind::kDamage,
     "The key frame ends before its picture is complete: slices are missing.", kLookElsewhere},
};
static_assert(is_whole(kAvcRows, kAvcLastRefusal));

static constexpr WordingRow<M4vRefusal> kM4vRows[] = {
    {M4vRefusal::kNone, "", RefusalKind::kNone, "", kNothingToDo},
    {M4vRefusal::kNoMemory, "no-memory", RefusalKind::kMemory, kNoMemory, kAskForLess},
    {M4vRefusal::kNoPicture, "mpeg4-no-picture", RefusalKind::kDamage,
     "The key frame holds no picture: it has no picture start code.", kLookElsewhere},
    {M4vRefusal::kNoLayer, "mpeg4-no-layer", RefusalKind::kBadHeaders,
     "Neither the key frame nor the file's esds has an MPEG-4 video object layer header, which says "
     "how large the pictures are.", kEncodeAgain},
    {M4vRefusal::kSizeChange, "mpeg4-size-change", RefusalKind::kDamage,
     "The key frame's headers give its picture more than one size.", kLookElsewhere},
    {M4vRefusal::kSampleTooShort, "mpeg4-sample-too-short", RefusalKind::kDamage,
     "The key frame has too few bytes for a picture of its size.", kLookElsewhere},
    {M4vRefusal::kDamagedLayer, "mpeg4-damaged-layer", RefusalKind::kBadHeaders,
     "The MPEG-4 stream's video object layer header is cut off or damaged.", kEncodeAgain},
    {M4vRefusal::kStudioProfile, "mpeg4-studio-profile", RefusalKind::kUnsupported,
     "The MPEG-4 stream is of the studio profile, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kFineGranularity, "mpeg4-fine-granularity", RefusalKind::kUnsupported,
     "The MPEG-4 stream uses fine granularity scalability, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kScalability, "mpeg4-scalability", RefusalKind::kUnsupported,
     "The MPEG-4 stream has scalability layers, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kShape, "mpeg4-shape", RefusalKind::kUnsupported,
     "The MPEG-4 stream has shapes other than rectangles, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kStaticSprite, "mpeg4-static-sprite", RefusalKind::kUnsupported,
     "The MPEG-4 stream has a static sprite, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kSampleDepth, "mpeg4-sample-depth", RefusalKind::kUnsupported,
     "The MPEG-4 stream has samples of other than 8 bits, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kNewpred, "mpeg4-newpred", RefusalKind::kUnsupported,
     "The MPEG-4 stream uses NEWPRED, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kNotIntra, "mpeg4-not-intra", RefusalKind::kUnsupported,
     "The key frame is no intra picture: it is predicted from other pictures.", kLookElsewhere},
    {M4vRefusal::kNotCoded, "mpeg4-not-coded", RefusalKind::kUnsupported,
     "The key frame is marked as not coded: it repeats another picture.", kLookElsewhere},
    {M4vRefusal::kReducedResolution, "mpeg4-reduced-resolution", RefusalKind::kUnsupported,
     "The key frame is coded at a reduced resolution (H.263 Annex Q), which is not decoded.",
     kEncodeAgain},
    {M4vRefusal::kResampling, "mpeg4-resampling", RefusalKind::kUnsupported,
     "The H.263 stream resamples its pictures (Annex P), which is not decoded.", kEncodeAgain},
    {M4vRefusal::kArithmeticCoding, "mpeg4-arithmetic-coding", RefusalKind::kUnsupported,
     "The H.263 stream uses arithmetic coding (Annex E), which is not decoded.", kEncodeAgain},
    {M4vRefusal::kBackChannel, "mpeg4-back-channel", RefusalKind::kUnsupported,
     "The H.263 stream carries messages of a back-channel (Annex N), which are not decoded.",
     kEncodeAgain},
    {M4vRefusal::kDamagedHeader, "mpeg4-damaged-header", RefusalKind::kDamage,
     "The header of the key frame's picture is cut off or damaged.", kLookElsewhere},
    {M4vRefusal::kCutOff, "mpeg4-cut-off", RefusalKind::kDamage,
     "The key frame's coded data ends within the picture.", kLookElsewhere},
    {M4vRefusal::kDamagedData, "mpeg4-damaged-data", RefusalKind::kDamage, "The key frame's coded data is damaged.",
     kLookElsewhere},
};
// clang-format on
static_assert(is_whole(kM4vRows, kM4vLastRefusal));

static std::string text_of_value(const AvcRefused& refused) {
    static constexpr const char* kSliceTypes[] = {"P", "B", "I", "SP", "SI"};
    switch (refused.reason) {
        case AvcRefusal::kChromaFormat:
            return refused.value == 2 ? "4:2:2" : "4:4:4";
        case AvcRefusal::kPredictedSlice:
        case AvcRefusal::kSwitchingSlice:
            return kSliceTypes[refused.value % std::size(kSliceTypes)];
        default:
            return std::to_string(refused.value);
    }
}

Wording wording_of(AvcRefusal reason) {
    const WordingRow<AvcRefusal>& row = kAvcRows[static_cast<size_t>(reason)];
    return {row.kind, row.sentence, row.advice, row.code};
}

Wording wording_of(const AvcRefused& refused) {
    Wording wording = wording_of(refused.reason);
    wording.sentence = fill_in(wording.sentence, {text_of_value(refused)});
    return wording;
}

Wording wording_of(M4vRefusal reason) {
    const WordingRow<M4vRefusal>& row = kM4vRows[static_cast<size_t>(reason)];
    return {row.kind, row.sentence, row.advice, row.code};
}
