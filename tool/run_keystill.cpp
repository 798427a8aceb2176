// SPDX-License-Identifier: BSD-2-Clause
#include "tool/run_keystill.h"

#include "runtime/accounted_memory.h"
#include "thumb/thumbnail.h"
#include "tool/arguments.h"
#include "tool/key_frames.h"
#include "tool/selection.h"

static Refusal refusal_of_key_frames(const KeyFrameRequest& request, int32_t requested) {
    if (request.refusal != Refusal::kNone) return request.refusal;
    if (request.codec_kind == kCodecNone) return Refusal::kOtherCodec;
    const bool is_possible = request.key_frame_count > 0 && request.key_frame_count <= requested;
    return is_possible ? Refusal::kNone : Refusal::kNoKeyFrame;
}

static Refusal write_chosen(const KeyFrameRequest& request, int32_t percentile, ThumbnailRun* run) {
    run->chosen = selection_pick(request.list, percentile);
    if (run->chosen < 0) return Refusal::kNoKeyFrame;
    KeyFrame record;
    Refusal refusal = key_frame_read(&request, run->chosen, &record);
    if (refusal == Refusal::kNone && WriteThumbnail(&record, &run->params, run->codec_kind) == 1) {
        refusal = Refusal::kNotWritten;
    }
    key_frame_release(&record);
    return refusal;
}

static Refusal collect_and_write(const Arguments& args, ThumbnailRun* run) {
    if (args.key_frame_count > kMostKeyFrames) return Refusal::kTooManyKeyFrames;
    KeyFrameRequest request = {};
    request.clip_offset_percent = args.clip_offset_percent;
    request.key_frame_count = args.key_frame_count;
    request.codec_kind = kCodecNone;
    GetKeyFrameMpeg4(args.input_path, &request);
    run->codec_kind = request.codec_kind;
    const Refusal refusal = refusal_of_key_frames(request, args.key_frame_count);
    if (refusal != Refusal::kNone) return refusal;
    run->collected = request.key_frame_count;
    return write_chosen(request, args.size_percentile, run);
}

ThumbnailRun make_thumbnail(const Arguments& args) {
    ThumbnailRun run = {Refusal::kNone, kCodecNone, 0, -1, {}};
    run.params = {args.output_path, args.quality, args.width, args.height};
    run.refusal = collect_and_write(args, &run);
    return run;
}

static Refusal check_and_run(int argc, const char* const* argv, Surroundings surroundings) {
    Arguments args;
    if (arguments_read(argc, argv, &args) != 0) {
        arguments_print_usage(stderr, argc > 0 ? argv[0] : nullptr);
        return Refusal::kTooFewArguments;
    }
    const Refusal refusal = arguments_refusal(args);
    if (refusal != Refusal::kNone) return refusal;
    if (surroundings == Surroundings::kSandbox) {
        sandbox_enter({args.input_path, args.output_path, SandboxOutput::kWritten});
    }
    return make_thumbnail(args).refusal;
}

int run_keystill(int argc, const char* const* argv, Surroundings surroundings) {
    upnp_memory_init();
    const Refusal refusal = check_and_run(argc, argv, surroundings);
    upnp_memory_exit();
    return refusal == Refusal::kNone ? 0 : 1;
}
