// SPDX-License-Identifier: BSD-2-Clause
#include "explain/run_verdict.h"

#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/accounted_memory.h"
#include "thumb/jpeg_writer.h"
#include "tool/key_frames.h"

static void check_side(const char* name, int32_t side, Verdict* verdict) {
    if (side < 0) {
        verdict_fail(verdict, "Give 0 for the picture's own size.",
                     "The %s %" PRId32 " is negative.", name, side);
    } else if (side & 1) {
        char advice[80];
        snprintf(advice, sizeof advice, "Ask for %" PRId32 " instead.", side - 1);
        verdict_fail(verdict, advice, "The %s %" PRId32 " is odd: thumbnails have even sides.",
                     name, side);
    }
}

static void check_percentage(const char* name, int32_t value, Verdict* verdict) {
    if (value >= 0 && value <= 100) return;
    verdict_fail(verdict, "", "The %s is %" PRId32 ", which is not within 0 to 100.", name, value);
}

void explain_arguments(const Arguments& args, Verdict* verdict) {
    check_side("width", args.width, verdict);
    check_side("height", args.height, verdict);
    check_percentage("JPEG quality", args.quality, verdict);
    if (args.key_frame_count < 1) {
        verdict_fail(verdict, "Ask for 1 or more; 5 is a good number.",
                     "The number of key frames to look at is %" PRId32 ".", args.key_frame_count);
    }
    check_percentage("clip offset", args.clip_offset_percent, verdict);
    check_percentage("size percentile", args.size_percentile, verdict);
}

void explain_input(const Arguments& args, Verdict* verdict) {
    struct stat status;
    if (stat(args.input_path, &status) != 0) {
        verdict_fail(verdict, "", "The file cannot be looked at: %s.", strerror(errno));
    } else if (S_ISDIR(status.st_mode)) {
        verdict_fail(verdict, "", "It is a folder.");
    } else if (!S_ISREG(status.st_mode)) {
        verdict_fail(verdict, "Copy it to a file.", "It is a pipe or a device.");
    } else if (!arguments_name_a_video(args)) {
        verdict_fail(verdict, "Give keystill a link to the file under another name.",
                     "The file's name does not end in m1v, m4v, mp4, qt, mpeg4, mov, 3gp or ismv.");
    } else if (access(args.input_path, R_OK) != 0) {
        verdict_fail(verdict, "", "The file cannot be opened: %s.", strerror(errno));
    } else if (status.st_size < 8) {
        verdict_fail(verdict, "", "The file is too short to be a video.");
    }
}

static void explain_failed_collection(const TrialRun& trial, const WantedFrames& frames,
                                      Verdict* verdict) {
    if (!trial.has_records) {
        verdict_fail(verdict, "Ask for fewer key frames.",
                     "There is not memory enough for so many key frames.");
    } else if (frames.is_given_up) {
        verdict_fail(verdict, kCopyStreams,
                     "The file's tables lead to the same bytes over and over again: reading them "
                     "was given up.");
    } else if (frames.is_broken_off) {
        verdict_fail(verdict, kCopyStreams,
                     "A fragment has no box header where the random access table (tfra) says, or "
                     "one of 64-bit or open size.");
    } else if (frames.largest > kUpnpMaxBlock - 4) {
        verdict_fail(verdict, kCopyStreams,
                     "A key frame is said to have %" PRIu32 " bytes, which is too much to read.",
                     frames.largest);
    } else {
        verdict_fail(verdict, kAskForLess, "There is not memory enough.");
    }
}

static void explain_empty_collection(const WantedFrames& frames, Verdict* verdict) {
    if (frames.is_in_fragments) {
        verdict_fail(verdict, kCopyStreams,
                     "The fragments of all key frames from there on give no size for them, or are "
                     "not where the random access table (tfra) says.");
    } else {
        verdict_fail(verdict, "Start earlier in the clip.",
                     "All key frames from there on are empty, or lie outside the file's tables.");
    }
}

static void explain_undecoded(const FrameFault& fault, const WantedFrames& frames,
                              int64_t file_size, Verdict* verdict) {
    if (fault.verdict.is_failure && !fault.is_damage) *verdict = fault.verdict;
    if (fault.verdict.is_failure && frames.is_in_fragments && frames.has_base_data_offset) {
        verdict_fail(verdict, kCopyStreams,
                     "The movie's fragments state a base data offset (tfhd), so their key frames "
                     "are not found; only data counted from the start of a fragment is.");
    }
    if (frames.chosen_end > file_size) {
        verdict_fail(verdict, "Copy the file again, or start earlier in the clip.",
                     "The file is cut off: it ends at %" PRId64
                     ", and the key frame to decode would go on to %" PRId64 ".",
                     file_size, frames.chosen_end);
    }
    if (fault.verdict.is_failure && !verdict->is_failure) *verdict = fault.verdict;
}

static bool is_side(int32_t side) { return side >= 1 && side <= kJpegMaxSide; }

void explain_trial(const TrialRun& trial, const WantedFrames& frames, const AvcFacts& avc,
                   int64_t file_size, Verdict* verdict) {
    if (trial.is_written || verdict->is_failure) return;
    if (trial.collected < 0) explain_failed_collection(trial, frames, verdict);
    if (trial.collected == 0) explain_empty_collection(frames, verdict);
    if (trial.chosen >= 0 && !trial.is_read && frames.chosen_size > kMostSample) {
        verdict_fail(verdict, kCopyStreams,
                     "The key frame to decode has %" PRIu32 " bytes, more than any picture needs.",
                     frames.chosen_size);
    }
    if (trial.chosen >= 0) explain_undecoded(trial.fault, frames, file_size, verdict);
    if (trial.chosen >= 0 && avc.has_sequence_set && (avc.width == 0 || avc.height == 0)) {
        verdict_fail(verdict, kEncodeAgain, "The stream's cropping window leaves no picture.");
    }
    const int32_t width = trial.params.width, height = trial.params.height;
    if (trial.chosen >= 0 && !(is_side(width) && is_side(height))) {
        verdict_fail(verdict, "Ask for another width and height.",
                     "The picture would come out as %" PRId32 "x%" PRId32
                     "; a JPEG file has sides of 1 to %d.",
                     width, height, static_cast<int>(kJpegMaxSide));
    }
    verdict_fail(verdict, kAskForLess, "There is not memory enough.");
}

// Whether a file can be written there, without touching it.
static int access_output(const char* path) {
    if (access(path, F_OK) == 0) return access(path, W_OK);
    char folder[PATH_MAX];
    const char* const slash = strrchr(path, '/');
    const size_t length = slash ? static_cast<size_t>(slash - path) + 1 : 0;
    if (length >= sizeof folder) return 0;
    memcpy(folder, path, length);
    folder[length] = '\0';
    return access(slash ? folder : ".", W_OK);
}

void explain_output(const Arguments& args, Verdict* verdict) {
    struct stat status;
    if (args.output_path[0] == '\0') return;
    if (stat(args.output_path, &status) == 0 && S_ISDIR(status.st_mode)) {
        verdict_fail(verdict, "Name a file in it.", "The output is a folder.");
    } else if (!arguments_spare_the_video(args)) {
        verdict_fail(verdict, "Name another file.", "The output is the video itself.");
    } else if (access_output(args.output_path) != 0) {
        verdict_fail(verdict, "", "The output cannot be created: %s.", strerror(errno));
    }
}

bool explain_spoils_a_video(const Arguments& args) {
    return arguments_is_video_name(args.output_path) && access(args.output_path, F_OK) == 0;
}
