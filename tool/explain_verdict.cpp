// SPDX-License-Identifier: BSD-2-Clause
#include "tool/explain_verdict.h"

#include <errno.h>
#include <fcntl.h>
#include <inttypes.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mp4/video_state.h"
#include "thumb/jpeg_writer.h"
#include "tool/movie_index.h"

static const char kCopyStreams[] = "Copy the streams into a new file: ffmpeg -i IN -c copy OUT.mp4";
static const char kEncodeAgain[] =
    "Encode the video again: ffmpeg -i IN -c:v libx264 -pix_fmt yuv420p OUT.mp4";

// The first reason counts.
__attribute__((format(printf, 3, 4))) static void fail(Verdict* verdict, const char* advice,
                                                       const char* format, ...) {
    if (verdict->is_failure) return;
    verdict->is_failure = true;
    va_list args;
    va_start(args, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started in the line above
    vsnprintf(verdict->reason, sizeof verdict->reason, format, args);
    va_end(args);
    snprintf(verdict->advice, sizeof verdict->advice, "%s", advice);
}

static void check_side(const char* name, int32_t side, Verdict* verdict) {
    if (side < 0) {
        fail(verdict, "Give 0 for the picture's own size.", "The %s %" PRId32 " is negative.", name,
             side);
    } else if (side & 1) {
        char advice[80];
        snprintf(advice, sizeof advice, "Ask for %" PRId32 " instead.", side - 1);
        fail(verdict, advice, "The %s %" PRId32 " is odd: thumbnails have even sides.", name, side);
    }
}

static void check_percentage(const char* name, int32_t value, Verdict* verdict) {
    if (value >= 0 && value <= 100) return;
    fail(verdict, "", "The %s is %" PRId32 ", which is not within 0 to 100.", name, value);
}

void explain_arguments(const Arguments& args, Verdict* verdict) {
    check_side("width", args.width, verdict);
    check_side("height", args.height, verdict);
    check_percentage("JPEG quality", args.quality, verdict);
    if (args.key_frame_count < 1) {
        fail(verdict, "Ask for 1 or more; 5 is a good number.",
             "The number of key frames to look at is %" PRId32 ".", args.key_frame_count);
    }
    check_percentage("clip offset", args.clip_offset_percent, verdict);
    check_percentage("size percentile", args.size_percentile, verdict);
}

void explain_input(const Arguments& args, Verdict* verdict) {
    struct stat status;
    if (stat(args.input_path, &status) != 0) {
        fail(verdict, "", "The file cannot be looked at: %s.", strerror(errno));
    } else if (!arguments_name_a_video(args)) {
        fail(verdict, "Give keystill a link to the file under another name.",
             "The file's name does not end in m1v, m4v, mp4, qt, mpeg4, mov, 3gp or ismv.");
    } else if (S_ISDIR(status.st_mode)) {
        fail(verdict, "", "It is a folder.");
    } else if (access(args.input_path, R_OK) != 0) {
        fail(verdict, "", "The file cannot be opened: %s.", strerror(errno));
    } else if (status.st_size < 8) {
        fail(verdict, "", "The file is too short to be a video.");
    }
}

struct FormatName {
    char format[5];
    const char* name;
};

// clang-format off
static const FormatName kFormats[] = {
    {"hvc1", "HEVC"}, {"hev1", "HEVC"}, {"dvh1", "HEVC"}, {"dvhe", "HEVC"},
    {"av01", "AV1"}, {"vp08", "VP8"}, {"vp09", "VP9"}, {"vvc1", "VVC"}, {"vvi1", "VVC"},
    {"avc2", "H.264 with extractors"}, {"avc3", "H.264 with parameter sets in the stream"},
    {"avc4", "H.264 with parameter sets in the stream"},
    {"h263", "H.263 in QuickTime style"}, {"H263", "H.263 in QuickTime style"},
    {"jpeg", "Motion JPEG"}, {"mjpa", "Motion JPEG"}, {"mjpb", "Motion JPEG"},
    {"mp1v", "MPEG-1 video"}, {"mp2v", "MPEG-2 video"}, {"m2v1", "MPEG-2 video"},
    {"apch", "ProRes"}, {"apcn", "ProRes"}, {"apcs", "ProRes"}, {"apco", "ProRes"},
    {"ap4h", "ProRes"}, {"rle ", "QuickTime Animation"}, {"png ", "PNG"}, {"vc-1", "VC-1"},
};
// clang-format on

static const char* name_of_format(const char* format) {
    for (const FormatName& row : kFormats) {
        if (memcmp(row.format, format, 4) == 0) return row.name;
    }
    return "not known here";
}

static bool is_protected(const char* format) {
    return strcmp(format, "encv") == 0 || strcmp(format, "drmi") == 0;
}

static void explain_missing_movie(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    if (!facts.has_known_box) {
        fail(verdict, "", "It is no MP4, QuickTime or 3GPP file, whatever its name says.");
    } else if (facts.declared_end != 0) {
        fail(verdict, "Copy the file again, or let its recorder finish it.",
             "The file is cut off: it ends at %" PRId64 ", its %s box should go on to %" PRId64
             ", and the index (moov) that would follow is missing.",
             file_size, facts.passing_type, facts.declared_end);
    } else {
        fail(verdict, "Let the recorder finish the file, or copy it again.",
             "The file has no index (moov).");
    }
}

static void explain_codec(const TrackFacts& video, Verdict* verdict) {
    if (!video.is_video) {
        fail(verdict, "", "The file has no video track.");
    } else if (is_protected(video.format)) {
        fail(verdict, "", "The video is protected (%s): its pictures are encrypted.", video.format);
    } else if (video.format[0] == '\0') {
        fail(verdict, kCopyStreams, "The video track does not say what codec it has.");
    } else {
        fail(verdict, kEncodeAgain,
             "The video's codec is %s (%s); H.264 (avc1), MPEG-4 Part 2 (mp4v) and H.263 (s263) "
             "can be decoded.",
             name_of_format(video.format), video.format);
    }
}

static void explain_missing_key_frames(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    if (facts.declared_end != 0) {
        fail(verdict, "Copy the file again.",
             "The file is cut off at %" PRId64 ", within what lists its key frames.", file_size);
    } else if (facts.has_fragments && !facts.has_random_access) {
        fail(verdict, kCopyStreams,
             "The movie is fragmented and has no random access table (mfra), so its key frames "
             "cannot be found.");
    } else if (facts.has_fragments) {
        fail(verdict, kCopyStreams,
             "The movie's random access table (tfra) names no key frame of the video track.");
    } else if (!facts.video.has_sync_samples) {
        fail(verdict, kEncodeAgain,
             "The video has no table of key frames (stss): all of its pictures count as key "
             "frames, and none is listed.");
    } else {
        fail(verdict, kEncodeAgain, "The video's table of key frames (stss) is empty.");
    }
}

static void explain_missing_tables(const TrackFacts& video, Verdict* verdict) {
    if (video.has_large_chunk_offsets && !video.has_chunk_offsets) {
        fail(verdict, kCopyStreams,
             "The video has 64-bit chunk offsets only (co64), which are not read.");
        return;
    }
    const bool has_times = g_video_state.time_to_sample.count != 0;
    const bool has_chunks = g_video_state.sample_to_chunk.count != 0;
    const bool has_offsets = g_video_state.chunk_offsets.count != 0;
    fail(verdict, kCopyStreams, "The video's sample tables are missing or empty:%s%s%s.",
         has_times ? "" : " stts", has_chunks ? "" : " stsc", has_offsets ? "" : " stco");
}

static void explain_missing_configuration(Verdict* verdict) {
    switch (g_video_state.codec_kind) {
        case kCodecAvc:
            fail(verdict, kCopyStreams, "The H.264 parameter sets are missing (avcC).");
            break;
        case kCodecMpeg4:
            fail(verdict, kEncodeAgain,
                 "The MPEG-4 decoder configuration (esds) is missing, or does not start with a "
                 "visual object sequence header.");
            break;
        default:
            fail(verdict, kCopyStreams, "The H.263 decoder configuration (d263) is missing.");
    }
}

void explain_container(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    const VideoState& state = g_video_state;
    if (!facts.has_movie) explain_missing_movie(facts, file_size, verdict);
    if (state.codec_kind == kCodecNone) explain_codec(facts.video, verdict);
    if (state.sync_sample_count == 0) explain_missing_key_frames(facts, file_size, verdict);
    if (!movie_has_needed_tables()) explain_missing_tables(facts.video, verdict);
    const bool has_avc_sets = state.sequence_sets.length != 0 && state.picture_sets.length != 0;
    if (!movie_has_configuration() || (state.codec_kind == kCodecAvc && !has_avc_sets)) {
        explain_missing_configuration(verdict);
    }
    if (facts.video.has_compact_sizes && !state.sample_sizes.is_present) {
        fail(verdict, kCopyStreams,
             "The video has compact sample sizes (stz2), which are not read.");
    }
    if (facts.video.has_constant_size && !state.fragments.has_table) {
        fail(verdict, kEncodeAgain,
             "All samples of the video have one size without a table; they count as empty.");
    }
}

static void explain_avc_stream(const AvcFacts& avc, Verdict* verdict) {
    if (!avc.has_sequence_set || !avc.has_picture_set) return;
    if (avc.is_interlaced) {
        fail(verdict,
             "Deinterlace it: ffmpeg -i IN -vf yadif -c:v libx264 -pix_fmt yuv420p OUT.mp4",
             "The H.264 stream is interlaced; only progressive pictures are decoded.");
    } else if (avc.bit_depth_luma != 8 || avc.bit_depth_chroma != 8) {
        fail(verdict, kEncodeAgain,
             "The H.264 stream has %" PRIu32 "-bit samples; only 8-bit ones are decoded.",
             avc.bit_depth_luma != 8 ? avc.bit_depth_luma : avc.bit_depth_chroma);
    } else if (avc.chroma_format_idc > 1) {
        fail(verdict, kEncodeAgain,
             "The H.264 stream is 4:%s; only 4:2:0 and monochrome pictures are decoded.",
             avc.chroma_format_idc == 2 ? "2:2" : "4:4");
    } else if (avc.is_lossless) {
        fail(verdict, kEncodeAgain, "The H.264 stream is lossless, which is not decoded.");
    } else if (avc.has_slice_groups) {
        fail(verdict, kEncodeAgain, "The H.264 stream has slice groups, which are not decoded.");
    } else if (avc.macroblocks > UINT16_MAX) {
        fail(verdict, kEncodeAgain,
             "The pictures are too large: 65535 blocks of 16x16 samples are the most.");
    }
}

static void explain_undecoded(const TrialRun& trial, const AvcFacts& avc, const SampleEnd& end,
                              Verdict* verdict) {
    if (trial.codec_kind == kCodecAvc) explain_avc_stream(avc, verdict);
    if (end.stated > end.file_size) {
        fail(verdict, "Copy the file again, or start earlier in the clip.",
             "The file is cut off: it ends at %" PRId64
             ", and the key frame to decode would go on to %" PRId64 ".",
             end.file_size, end.stated);
    }
    if (trial.codec_kind == kCodecAvc && trial.frame.length_prefix_size == 3) {
        fail(verdict, kCopyStreams,
             "The stream's units have lengths of 3 bytes, which are not read.");
    }
    if (trial.codec_kind == kCodecAvc && trial.slice == AvcSlice::kOther) {
        fail(verdict, kEncodeAgain,
             "The key frame is no intra picture but a recovery point made of predicted slices.");
    }
    fail(verdict, "Start at another part of the clip, or take another percentile.",
         trial.codec_kind == kCodecAvc
             ? "The key frame's coded data is damaged, or there is not memory enough."
             : "The key frame's coded data is damaged or no intra picture, or there is not memory "
               "enough.");
}

void explain_trial(const TrialRun& trial, const AvcFacts& avc, const SampleEnd& end,
                   Verdict* verdict) {
    if (trial.is_written) return;
    if (trial.collected < 0) {
        fail(verdict, "Ask for fewer key frames.", "There is not memory enough.");
    } else if (trial.collected == 0 || trial.chosen < 0) {
        fail(verdict, "Start earlier in the clip.",
             "All key frames from there on are empty, or lie outside the file's tables.");
    } else if (!trial.is_decoded) {
        explain_undecoded(trial, avc, end, verdict);
    }
    const int32_t width = trial.params.width, height = trial.params.height;
    fail(verdict, "Ask for another width and height.",
         "The picture would come out as %" PRId32 "x%" PRId32 "; a JPEG file has sides of 1 to %d.",
         width, height, static_cast<int>(kJpegMaxSide));
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
        fail(verdict, "Name a file in it.", "The output is a folder.");
    } else if (access_output(args.output_path) != 0) {
        fail(verdict, "", "The output cannot be created: %s.", strerror(errno));
    }
}
