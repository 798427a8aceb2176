// SPDX-License-Identifier: BSD-2-Clause
#include "explain/run_verdict.h"

#include <errno.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

static void check_side(const char* name, int32_t side, Verdict* verdict) {
    if (side < 0) verdict_fail(verdict, Reason::kNegativeSide, {name, std::to_string(side)});
    if (side & 1) {
        const std::string even = std::to_string(side - 1);
        verdict_fail(verdict, Reason::kOddSide, {name, std::to_string(side), even});
    }
}

static void check_percentage(const char* name, int32_t value, Verdict* verdict) {
    verdict_fail(verdict, Reason::kPercentage, {name, std::to_string(value)});
}

void explain_arguments(const Arguments& args, Verdict* verdict) {
    switch (arguments_refusal(args)) {
        case Refusal::kNegativeSide:
        case Refusal::kOddSide:
            check_side("width", args.width, verdict);
            return check_side("height", args.height, verdict);
        case Refusal::kQuality:
            return check_percentage("JPEG quality", args.quality, verdict);
        case Refusal::kKeyFrameCount:
            return verdict_fail(verdict, Reason::kKeyFrameCount,
                                {std::to_string(args.key_frame_count)});
        case Refusal::kClipOffset:
            return check_percentage("clip offset", args.clip_offset_percent, verdict);
        case Refusal::kSizePercentile:
            return check_percentage("size percentile", args.size_percentile, verdict);
        default:
            return;
    }
}

void explain_input(const Arguments& args, Verdict* verdict) {
    struct stat status;
    if (stat(args.input_path, &status) != 0) {
        verdict_fail(verdict, Reason::kNoInput, {strerror(errno)});
    } else if (S_ISDIR(status.st_mode)) {
        verdict_fail(verdict, Reason::kFolderAsInput);
    } else if (!S_ISREG(status.st_mode)) {
        verdict_fail(verdict, Reason::kDeviceAsInput);
    } else if (!arguments_is_video_name(args.input_path)) {
        verdict_fail(verdict, Reason::kInputName);
    } else if (access(args.input_path, R_OK) != 0) {
        verdict_fail(verdict, Reason::kInputNotOpened, {strerror(errno)});
    } else if (status.st_size < 8) {
        verdict_fail(verdict, Reason::kInputTooShort);
    }
}

static Wording wording_of(const ThumbnailRun& run) {
    const KeyFrameRefusal& refusal = run.params.refusal;
    return run.codec_kind == kCodecAvc ? wording_of(refusal.avc) : wording_of(refusal.m4v);
}

// Damage in a key frame has its reason where the data does not come from where it should.
static void explain_undecoded(const ThumbnailRun& run, const WantedFrames& frames,
                              int64_t file_size, Verdict* verdict) {
    const Wording wording = wording_of(run);
    const bool may_be_elsewhere =
        wording.kind == RefusalKind::kDamage || wording.kind == RefusalKind::kBadHeaders;
    if (may_be_elsewhere && frames.is_in_fragments) {
        if (frames.has_base_data_offset) verdict_fail(verdict, Reason::kBaseDataOffset);
        if (!frames.is_last_track) verdict_fail(verdict, Reason::kLastTrackNotVideo);
    }
    if (wording.kind != RefusalKind::kDamage) return verdict_fail(verdict, wording);
    if (frames.chosen_end > file_size) {
        verdict_fail(verdict, Reason::kKeyFrameCut,
                     {std::to_string(file_size), std::to_string(frames.chosen_end)});
    }
    verdict_fail(verdict, wording);
}

static void explain_unwritten(const ThumbnailRun& run, const WantedFrames& frames,
                              int64_t file_size, Verdict* verdict) {
    switch (run.params.failure) {
        case ThumbnailFailure::kNotDecoded:
            return explain_undecoded(run, frames, file_size, verdict);
        case ThumbnailFailure::kNothingVisible:
            return verdict_fail(verdict, Reason::kNothingVisible);
        case ThumbnailFailure::kSide:
            return verdict_fail(
                verdict, Reason::kSide,
                {std::to_string(run.params.width), std::to_string(run.params.height)});
        case ThumbnailFailure::kNoMemory:
            return verdict_fail(verdict, Reason::kNoMemory);
        case ThumbnailFailure::kNone:
        case ThumbnailFailure::kNotCreated:
        case ThumbnailFailure::kNotWritten:
            return verdict_fail(verdict, Reason::kNotWritten);
    }
}

void explain_run(const ThumbnailRun& run, const WantedFrames& frames, int64_t file_size,
                 Verdict* verdict) {
    switch (run.refusal) {
        case Refusal::kNone:
            return;
        case Refusal::kTooFewArguments:
            return verdict_fail(verdict, Reason::kTooFewArguments);
        case Refusal::kTooManyKeyFrames:
            return verdict_fail(verdict, Reason::kTooManyKeyFrames);
        case Refusal::kNoBoxes:
            return verdict_fail(verdict, Reason::kNotAMovie);
        case Refusal::kBoxesGivenUp:
            return verdict_fail(verdict, Reason::kBoxesGivenUp);
        case Refusal::kTooManyFragments:
            return verdict_fail(verdict, Reason::kTooManyFragments);
        case Refusal::kFragmentHeader:
            return verdict_fail(verdict, Reason::kFragmentHeader);
        case Refusal::kTablesGivenUp:
            return verdict_fail(verdict, Reason::kTablesGivenUp);
        case Refusal::kKeyFrameTooLarge:
            return verdict_fail(verdict, Reason::kKeyFrameTooLarge,
                                {std::to_string(frames.largest)});
        case Refusal::kNoKeyFrame:
            return verdict_fail(
                verdict, frames.is_in_fragments ? Reason::kNoSizesInFragments : Reason::kAllEmpty);
        case Refusal::kKeyFrameTooLong:
            return verdict_fail(verdict, Reason::kKeyFrameTooLong,
                                {std::to_string(frames.chosen_size)});
        case Refusal::kNotWritten:
            return explain_unwritten(run, frames, file_size, verdict);
        // Said already: what is wrong with the arguments, and what the boxes show to be missing.
        case Refusal::kNegativeSide:
        case Refusal::kOddSide:
        case Refusal::kQuality:
        case Refusal::kKeyFrameCount:
        case Refusal::kClipOffset:
        case Refusal::kSizePercentile:
        case Refusal::kNoInput:
        case Refusal::kIrregularInput:
        case Refusal::kInputName:
        case Refusal::kOutputIsInput:
        case Refusal::kNoKeyFrameTable:
        case Refusal::kNoSampleTables:
        case Refusal::kNoConfiguration:
        case Refusal::kOtherCodec:
        // A file that was open a moment ago.
        case Refusal::kInputNotOpened:
        case Refusal::kNoMemory:
            return verdict_fail(verdict, Reason::kNoMemory);
    }
}

// Whether a file can be written there, without touching it.
static int access_output(const char* path) {
    if (access(path, F_OK) == 0) return access(path, W_OK);
    const std::string text = path;
    const size_t slash = text.rfind('/');
    return access(slash == std::string::npos ? "." : text.substr(0, slash + 1).c_str(), W_OK);
}

void explain_output(const Arguments& args, Verdict* verdict) {
    struct stat status;
    if (args.output_path[0] == '\0') return;
    if (stat(args.output_path, &status) == 0 && S_ISDIR(status.st_mode)) {
        verdict_fail(verdict, Reason::kFolderAsOutput);
    } else if (arguments_refusal(args) == Refusal::kOutputIsInput) {
        verdict_fail(verdict, Reason::kOutputIsInput);
    } else if (access_output(args.output_path) != 0) {
        verdict_fail(verdict, Reason::kOutputNotCreated, {strerror(errno)});
    }
}

bool explain_spoils_a_video(const Arguments& args) {
    return arguments_is_video_name(args.output_path) && access(args.output_path, F_OK) == 0;
}
