// SPDX-License-Identifier: BSD-2-Clause
#include "tool/run_keystill.h"

#include "runtime/accounted_memory.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"
#include "tool/key_frames.h"
#include "tool/selection.h"

static bool has_key_frames(const KeyFrameRequest& request, int32_t requested) {
    return request.codec_kind != kCodecNone && request.key_frame_count > 0 &&
           request.key_frame_count <= requested;
}

static int write_chosen(const Arguments& args, const KeyFrameRequest& request) {
    const int32_t chosen = selection_pick(request.list, args.size_percentile);
    if (chosen < 0) return 1;
    KeyFrame record;
    ThumbnailParams params = {args.output_path, args.quality, args.width, args.height};
    const int status = key_frame_read(&request, chosen, &record) != 0 ||
                       WriteThumbnail(&record, &params, request.codec_kind) == 1;
    key_frame_release(&record);
    return status;
}

static int make_thumbnail(const Arguments& args) {
    if (args.key_frame_count > kMostKeyFrames) return 1;
    KeyFrameRequest request = {};
    request.clip_offset_percent = args.clip_offset_percent;
    request.key_frame_count = args.key_frame_count;
    request.codec_kind = kCodecNone;
    if (GetKeyFrameMpeg4(args.input_path, &request) != 0) return 1;
    return has_key_frames(request, args.key_frame_count) ? write_chosen(args, request) : 1;
}

static int check_and_run(int argc, const char* const* argv, Surroundings surroundings) {
    Arguments args;
    if (arguments_read(argc, argv, &args) != 0) {
        arguments_print_usage(stderr, argc > 0 ? argv[0] : nullptr);
        return 1;
    }
    if (!arguments_are_in_range(args) || !arguments_name_a_video(args)) return 1;
    if (!arguments_spare_the_video(args)) return 1;
    if (surroundings == Surroundings::kSandbox) {
        sandbox_enter({args.input_path, args.output_path, SandboxOutput::kWritten});
    }
    return make_thumbnail(args);
}

int run_keystill(int argc, const char* const* argv, Surroundings surroundings) {
    upnp_memory_init();
    const int status = check_and_run(argc, argv, surroundings);
    upnp_memory_exit();
    return status;
}
