// SPDX-License-Identifier: BSD-2-Clause
#include "tool/run_keystill.h"

#include "runtime/owned.h"
#include "runtime/sandbox.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"
#include "tool/key_frames.h"
#include "tool/selection.h"

static bool has_key_frames(const KeyFrameRequest& request, int32_t requested) {
    return request.codec_kind != kCodecNone && request.key_frame_count > 0 &&
           request.key_frame_count <= requested;
}

static int write_chosen(const Arguments& args, const KeyFrameRequest& request) {
    if (!has_key_frames(request, args.key_frame_count)) return 1;
    const KeyFrame* const chosen =
        selection_pick(request.records, request.key_frame_count, args.size_percentile);
    if (!chosen) return 1;
    ThumbnailParams params = {args.output_path, args.quality, args.width, args.height};
    return WriteThumbnail(chosen, &params, request.codec_kind) == 1 ? 1 : 0;
}

// Records are filled from the front, so the first empty one behind those reported ends them: the
// untouched rest of a long array is not even read.
static void release_records(KeyFrame* records, int32_t requested, int32_t reported) {
    for (int32_t i = 0; i < requested; ++i) {
        if (i >= reported && !records[i].config && !records[i].sample) return;
        key_frame_release(&records[i]);
    }
}

static int make_thumbnail(const Arguments& args) {
    const Owned<KeyFrame> records = owned_calloc<KeyFrame>(args.key_frame_count);
    if (!records) return 1;
    KeyFrameRequest request = {};
    request.clip_offset_percent = args.clip_offset_percent;
    request.key_frame_count = args.key_frame_count;
    request.records = records.get();
    request.codec_kind = kCodecNone;
    const bool is_collected = GetKeyFrameMpeg4(args.input_path, &request) == 0;
    const int status = is_collected ? write_chosen(args, request) : 1;
    release_records(records.get(), args.key_frame_count,
                    is_collected ? request.key_frame_count : 0);
    return status;
}

static int check_and_run(int argc, const char* const* argv, Surroundings surroundings) {
    Arguments args;
    if (arguments_read(argc, argv, &args) != 0) {
        arguments_print_usage(stderr, argc > 0 ? argv[0] : nullptr);
        return 1;
    }
    if (!arguments_are_in_range(args) || !arguments_name_a_video(args)) return 1;
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
