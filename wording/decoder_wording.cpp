// SPDX-License-Identifier: BSD-2-Clause
#include "wording/decoder_wording.h"

#include <stddef.h>

#include <iterator>

#include "wording/advice.h"

template <typename Reason>
struct WordingRow {
    Reason reason;
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
static constexpr WordingRow<M4vRefusal> kM4vRows[] = {
    {M4vRefusal::kNone, RefusalKind::kNone, "", kNothingToDo},
    {M4vRefusal::kNoMemory, RefusalKind::kMemory, kNoMemory, kAskForLess},
    {M4vRefusal::kNoPicture, RefusalKind::kDamage,
     "The key frame holds no picture: it has no picture start code.", kLookElsewhere},
    {M4vRefusal::kNoLayer, RefusalKind::kDamage,
     "Neither the key frame nor the file's esds has an MPEG-4 video object layer header, which says "
     "how large the pictures are.", kEncodeAgain},
    {M4vRefusal::kSizeChange, RefusalKind::kDamage,
     "The key frame's headers give its picture more than one size.", kLookElsewhere},
    {M4vRefusal::kSampleTooShort, RefusalKind::kDamage,
     "The key frame has too few bytes for a picture of its size.", kLookElsewhere},
    {M4vRefusal::kDamagedLayer, RefusalKind::kDamage,
     "The MPEG-4 stream's video object layer header is cut off or damaged.", kEncodeAgain},
    {M4vRefusal::kStudioProfile, RefusalKind::kUnsupported,
     "The MPEG-4 stream is of the studio profile, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kFineGranularity, RefusalKind::kUnsupported,
     "The MPEG-4 stream uses fine granularity scalability, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kScalability, RefusalKind::kUnsupported,
     "The MPEG-4 stream has scalability layers, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kShape, RefusalKind::kUnsupported,
     "The MPEG-4 stream has shapes other than rectangles, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kStaticSprite, RefusalKind::kUnsupported,
     "The MPEG-4 stream has a static sprite, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kSampleDepth, RefusalKind::kUnsupported,
     "The MPEG-4 stream has samples of other than 8 bits, which are not decoded.", kEncodeAgain},
    {M4vRefusal::kNewpred, RefusalKind::kUnsupported,
     "The MPEG-4 stream uses NEWPRED, which is not decoded.", kEncodeAgain},
    {M4vRefusal::kNotIntra, RefusalKind::kUnsupported,
     "The key frame is no intra picture: it is predicted from other pictures.", kLookElsewhere},
    {M4vRefusal::kNotCoded, RefusalKind::kUnsupported,
     "The key frame is marked as not coded: it repeats another picture.", kLookElsewhere},
    {M4vRefusal::kReducedResolution, RefusalKind::kUnsupported,
     "The key frame is coded at a reduced resolution (H.263 Annex Q), which is not decoded.",
     kEncodeAgain},
    {M4vRefusal::kResampling, RefusalKind::kUnsupported,
     "The H.263 stream resamples its pictures (Annex P), which is not decoded.", kEncodeAgain},
    {M4vRefusal::kArithmeticCoding, RefusalKind::kUnsupported,
     "The H.263 stream uses arithmetic coding (Annex E), which is not decoded.", kEncodeAgain},
    {M4vRefusal::kBackChannel, RefusalKind::kUnsupported,
     "The H.263 stream carries messages of a back-channel (Annex N), which are not decoded.",
     kEncodeAgain},
    {M4vRefusal::kDamagedHeader, RefusalKind::kDamage,
     "The header of the key frame's picture is cut off or damaged.", kLookElsewhere},
    {M4vRefusal::kCutOff, RefusalKind::kDamage,
     "The key frame's coded data ends within the picture.", kLookElsewhere},
    {M4vRefusal::kDamagedData, RefusalKind::kDamage, "The key frame's coded data is damaged.",
     kLookElsewhere},
};
// clang-format on
static_assert(is_whole(kM4vRows, kM4vLastRefusal));

Wording wording_of(M4vRefusal reason) {
    const WordingRow<M4vRefusal>& row = kM4vRows[static_cast<size_t>(reason)];
    return {row.kind, row.sentence, row.advice};
}
