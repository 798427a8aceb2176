// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <stdlib.h>
#include <strings.h>

#include "tool/file_query.h"
#include "tool/media_types.h"

constexpr int kArgumentCount = 8;

static int32_t read_number(const char* text) {
    const long value = strtol(text, nullptr, 10);
    if (value > INT32_MAX) return INT32_MAX;
    return value < INT32_MIN ? INT32_MIN : static_cast<int32_t>(value);
}

// Negative numbers are refused as well: they are huge without their sign.
static bool is_percentage(int32_t value) { return static_cast<uint32_t>(value) <= 100; }

static bool is_accepted(const char* extension) {
    static const char* const kAccepted[] = {"m1v",   "m4v", "mp4", "qt",
                                            "mpeg4", "mov", "3gp", "ismv"};
    for (const char* const accepted : kAccepted) {
        if (strcasecmp(extension, accepted) == 0) return true;
    }
    return false;
}

int arguments_read(int argc, const char* const* argv, Arguments* args) {
    if (argc <= kArgumentCount || !argv[1] || !argv[2]) return 1;
    args->input_path = argv[1];
    args->output_path = argv[2];
    args->width = read_number(argv[3]);
    args->height = read_number(argv[4]);
    args->quality = read_number(argv[5]);
    args->key_frame_count = read_number(argv[6]);
    args->clip_offset_percent = read_number(argv[7]);
    args->size_percentile = read_number(argv[8]);
    return 0;
}

static Refusal refusal_of_numbers(const Arguments& args) {
    if (args.width < 0 || args.height < 0) return Refusal::kNegativeSide;
    if ((args.width | args.height) & 1) return Refusal::kOddSide;
    if (!is_percentage(args.quality)) return Refusal::kQuality;
    if (args.key_frame_count < 1) return Refusal::kKeyFrameCount;
    if (!is_percentage(args.clip_offset_percent)) return Refusal::kClipOffset;
    return is_percentage(args.size_percentile) ? Refusal::kNone : Refusal::kSizePercentile;
}

bool arguments_is_video_name(const char* path) {
    const char* const extension = file_query_extension(path);
    return extension && media_type_of(extension) && is_accepted(extension);
}

static Refusal refusal_of_files(const Arguments& args) {
    FileStatus status;
    if (file_query_status(args.input_path, &status) != 0) return Refusal::kNoInput;
    if (!status.is_regular) return Refusal::kIrregularInput;
    if (!arguments_is_video_name(args.input_path)) return Refusal::kInputName;
    if (file_query_is_same(args.input_path, args.output_path)) return Refusal::kOutputIsInput;
    return Refusal::kNone;
}

Refusal arguments_refusal(const Arguments& args) {
    const Refusal refusal = refusal_of_numbers(args);
    return refusal == Refusal::kNone ? refusal_of_files(args) : refusal;
}

void arguments_print_usage(FILE* out, const char* program) {
    fprintf(out,
            "\nUsage:  %s  filenameIn  jpgFilenameOut  "
            "thumbWidth thumbHeight  jpegQuality (0-100)  "
            "#keyFramesRequested  clipOfstPercent  sizePercentile (0-100)\n\n"
            "where\n"
            "  clipOfstPercent is percent of clip duration at which keyframes are collected\n"
            "  sizePercentile of the keyframe bitstream sizes is the selected key frame\n"
            "  width=0 or height=0 sets the thumbnail size to be same as the picture size\n\n",
            program ? program : "");
}
