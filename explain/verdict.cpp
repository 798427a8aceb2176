// SPDX-License-Identifier: BSD-2-Clause
#include "explain/verdict.h"

#include <stddef.h>

#include <iterator>

#include "wording/advice.h"
#include "wording/fill_in.h"

struct ReasonRow {
    Reason reason;
    const char* code;
    const char* sentence;
    const char* advice;
};

static constexpr char kFinishFile[] = "Copy the file again, or let its recorder finish it.";

// clang-format off
static constexpr ReasonRow kRows[] = {
    {Reason::kNone, "", "", ""},

    {Reason::kTooFewArguments, "too-few-arguments", "Fewer than eight arguments are given.",
     "keystill without arguments says what they are."},
    {Reason::kNegativeSide, "negative-side", "The {} {} is negative.", "Give 0 for the picture's own size."},
    {Reason::kOddSide, "odd-side", "The {} {} is odd: thumbnails have even sides.", "Ask for {} instead."},
    {Reason::kPercentage, "percentage", "The {} is {}, which is not within 0 to 100.", ""},
    {Reason::kKeyFrameCount, "key-frame-count", "The number of key frames to look at is {}.",
     "Ask for 1 or more; 5 is a good number."},
    {Reason::kNoInput, "no-input", "The file cannot be looked at: {}.", ""},
    {Reason::kFolderAsInput, "folder-as-input", "It is a folder.", ""},
    {Reason::kDeviceAsInput, "device-as-input", "It is a pipe or a device.", "Copy it to a file."},
    {Reason::kInputName, "input-name",
     "The file's name does not end in m1v, m4v, mp4, qt, mpeg4, mov, 3gp or ismv.",
     "Give keystill a link to the file under another name."},
    {Reason::kInputNotOpened, "input-not-opened", "The file cannot be opened: {}.", ""},
    {Reason::kInputTooShort, "input-too-short", "The file is too short to be a video.", ""},
    {Reason::kTooManyKeyFrames, "too-many-key-frames", "There is not enough memory for so many key frames.",
     "Ask for fewer key frames."},
    {Reason::kOutputIsInput, "output-is-input", "The output is the video itself.", "Name another file."},
    {Reason::kFolderAsOutput, "folder-as-output", "The output is a folder.", "Name a file in it."},
    {Reason::kOutputNotCreated, "output-not-created", "The output cannot be created: {}.", ""},
    {Reason::kNoAnswer, "no-answer", "Looking at the file was ended by signal {}.", ""},

    {Reason::kOtherKindOfFile, "other-kind-of-file",
     "It is a file of another kind, {}; MP4, QuickTime and 3GPP files are read.", kOtherFile},
    {Reason::kNotAMovie, "no-movie",
     "It is no MP4, QuickTime or 3GPP file, whatever its name says.", ""},
    {Reason::kBoxesBroken, "boxes-broken",
     "The last box that the reader gets to has a 64-bit size of 0, for which the file is given up.",
     kCopyStreams},
    {Reason::kBoxesGivenUp, "boxes-given-up",
     "The file has more boxes than any film: going through them was given up.", kCopyStreams},
    {Reason::kCutBeforeIndex, "cut-before-index",
     "The file is cut off: it ends at {}, its {} box should go on to {}, and the index (moov) that "
     "would follow is missing.", kFinishFile},
    {Reason::kNoIndex, "no-index", "The file has no index (moov).",
     "Let the recorder finish the file, or copy it again."},
    {Reason::kIndexCut, "index-cut",
     "The file is cut off: it ends at {}, its {} box should go on to {}, and a part of the index is "
     "missing.", kFinishFile},
    {Reason::kFragmentsCut, "fragments-cut",
     "The file is cut off: it ends at {}, its {} box should go on to {}, and the list of key frames "
     "(mfra) that would follow is missing.", kFinishFile},
    {Reason::kIndexDamaged, "index-damaged",
     "The index is damaged: the size of its {} box at {} is wrong, and no video track is found.",
     kCopyFileAgain},
    {Reason::kNoVideo, "no-video", "The file has no video track.", ""},
    {Reason::kTrackBoxSkipped, "track-box-skipped",
     "A box of the video track ({}) has a 64-bit or open size; such a one is skipped.",
     kCopyStreams},
    {Reason::kMetadataFirst, "metadata-first",
     "The metadata in front of the video track ({} at {}) end with four zero bytes, or have no "
     "version: the rest of the movie is taken for a part of them.", kCopyStreams},
    {Reason::kVideoNotReached, "video-not-reached",
     "The reader does not get as far as the video track: the sizes of the boxes in front of it are "
     "wrong.", kCopyStreams},

    {Reason::kProtected, "protected", "The video is protected ({}): its pictures are encrypted.", ""},
    {Reason::kNoCodec, "no-codec", "The video track does not say what codec it has.", kCopyStreams},
    {Reason::kOtherCodec, "other-codec",
     "The video's codec is {} ({}); H.264 (avc1), MPEG-4 Part 2 (mp4v) and H.263 (s263) can be "
     "decoded.", "{}"},
    {Reason::kOtherCodecOfLastTrack, "other-codec-of-last-track",
     "The last video track's codec is {} ({}); H.264 (avc1), MPEG-4 Part 2 (mp4v) and H.263 (s263) "
     "can be decoded.", "{}"},
    {Reason::kDescriptionUnreadable, "description-unreadable",
     "The video's sample description (stsd) cannot be read: its size is wrong, 64-bit or open.",
     kCopyStreams},
    {Reason::kNoAvcConfiguration, "no-avcc", "The H.264 decoder configuration (avcC) is missing.",
     kCopyStreams},
    {Reason::kNoSequenceSet, "no-sequence-set",
     "The H.264 decoder configuration (avcC) has no sequence parameter set.", kCopySets},
    {Reason::kNoPictureSet, "no-picture-set",
     "The H.264 decoder configuration (avcC) has no picture parameter set.", kCopySets},
    {Reason::kOtherCodecInMpeg4, "other-codec-in-mpeg4",
     "The video's codec is {} (mp4v with object type {}), which is not decoded.", kEncodeAgain},
    {Reason::kNoMpeg4Configuration, "no-esds", "The MPEG-4 decoder configuration (esds) is missing.",
     kEncodeAgain},
    {Reason::kMpeg4ConfigurationElsewhere, "esds-elsewhere",
     "The MPEG-4 decoder configuration (esds) is not the first box of its sample description, where "
     "it is looked for.", kCopyStreams},
    {Reason::kMpeg4ConfigurationUnknown, "esds-unknown",
     "The MPEG-4 decoder configuration (esds) does not start with a visual object sequence header.",
     kEncodeAgain},
    {Reason::kNoH263Configuration, "no-d263", "The H.263 decoder configuration (d263) is missing.",
     kCopyTo3gp},

    {Reason::kNoRandomAccessTables, "no-mfra",
     "The movie is fragmented and has no random access table (mfra), so its key frames cannot be "
     "found.", kCopyStreams},
    {Reason::kLastTrackNotVideo, "last-track-not-video",
     "The movie is fragmented, and its last track is not the video but another one; key frames are "
     "looked for in the last track.", kCopyStreams},
    {Reason::kNoRandomAccessOfVideo, "no-tfra-of-video",
     "The movie's random access table (tfra) names no key frame of the video track.", kCopyStreams},
    {Reason::kRandomAccessEmpty, "tfra-empty", "The video's random access table (tfra) is empty.", kCopyStreams},
    {Reason::kRandomAccessSkipped, "tfra-skipped",
     "The video's random access table (tfra) is passed over: no track run stands in front of it, or "
     "it has a 64-bit size or too many entries.", kCopyStreams},
    {Reason::kTooManyFragments, "too-many-fragments",
     "The video's random access table (tfra) has more entries than there is memory for.",
     kCopyStreams},
    {Reason::kFragmentHeader, "fragment-header",
     "A fragment has no box header where the random access table (tfra) says, or one of 64-bit or "
     "open size.", kCopyStreams},
    {Reason::kBaseDataOffset, "base-data-offset",
     "The movie's fragments state a base data offset (tfhd), so their key frames are not found; "
     "only data counted from the start of a fragment is.", kCopyStreams},
    {Reason::kNoSizesInFragments, "no-sizes-in-fragments",
     "The fragments of all key frames from there on give no size for them, or are not where the "
     "random access table (tfra) says.", kCopyStreams},
    {Reason::kNoPictures, "no-pictures",
     "The video has no pictures. If it is the start of a stream in segments, they are in other files.",
     kAddSegments},
    {Reason::kNoKeyFrameTable, "no-stss",
     "The video has no table of key frames (stss): all of its pictures count as key frames, and "
     "none is listed.", kEncodeAgain},
    {Reason::kKeyFrameTableSkipped, "stss-skipped",
     "The video's table of key frames (stss) has a 64-bit or open size; such a box is skipped.",
     kCopyStreams},
    {Reason::kKeyFrameTableEmpty, "stss-empty",
     "The video's table of key frames (stss) is empty, or cannot be read.", kEncodeAgain},
    {Reason::kLargeOffsets, "co64-only",
     "The video has 64-bit chunk offsets only (co64), which are not read.", kCopyLarge},
    {Reason::kCompactSizes, "stz2", "The video has compact sample sizes (stz2), which are not read.",
     kCopyStreams},
    {Reason::kConstantSize, "constant-size",
     "All samples of the video have one size without a table; they count as empty.", kEncodeAgain},
    {Reason::kTablesMissing, "tables-missing",
     "The video's sample tables are missing, empty or cannot be read:{}.", kCopyStreams},
    {Reason::kTablesGivenUp, "tables-given-up",
     "The file's tables lead on and on, further than those of any film: reading them was given up.",
     kCopyStreams},
    {Reason::kAllEmpty, "all-empty",
     "All key frames from there on are empty, or lie outside the file's tables.",
     "Start earlier in the clip."},
    {Reason::kKeyFrameTooLarge, "key-frame-too-large",
     "A key frame is said to have {} bytes, which is too much to read.", kCopyStreams},
    {Reason::kKeyFrameTooLong, "key-frame-too-long",
     "The key frame to decode has {} bytes, more than any picture needs.", kCopyStreams},
    {Reason::kKeyFrameCut, "key-frame-cut",
     "The file is cut off: it ends at {}, and the key frame to decode would go on to {}.",
     "Copy the file again, or start earlier in the clip."},

    {Reason::kNothingVisible, "nothing-visible", "The stream's cropping window leaves no picture.", kEncodeAgain},
    {Reason::kSide, "thumbnail-side",
     "The picture would come out as {}x{}; a JPEG file has sides of 1 to 65500.",
     "Ask for another width and height."},
    {Reason::kNotWritten, "not-written", "The JPEG cannot be written.", kAskForLess},
    {Reason::kNoMemory, "no-memory", "There is not enough memory.", kAskForLess},
};
// clang-format on

static consteval bool are_in_order() {
    for (size_t i = 0; i < std::size(kRows); ++i) {
        if (kRows[i].reason != static_cast<Reason>(i)) return false;
    }
    return std::size(kRows) == static_cast<size_t>(kLastReason) + 1;
}
static_assert(are_in_order());

Wording wording_of(Reason reason) {
    const ReasonRow& row = kRows[static_cast<size_t>(reason)];
    return {RefusalKind::kNone, row.sentence, row.advice, row.code};
}

void verdict_fail(Verdict* verdict, Reason reason, std::initializer_list<std::string> values) {
    if (verdict->is_failure) return;
    const ReasonRow& row = kRows[static_cast<size_t>(reason)];
    const std::string both = fill_in(std::string(row.sentence) + '\n' + row.advice, values);
    const size_t end = both.find('\n');
    *verdict = {true, row.code, both.substr(0, end), both.substr(end + 1)};
}

void verdict_fail(Verdict* verdict, const Wording& wording) {
    if (!verdict->is_failure) *verdict = {true, wording.code, wording.sentence, wording.advice};
}
