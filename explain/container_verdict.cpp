// SPDX-License-Identifier: BSD-2-Clause
// Why the container gives no key frames.
#include <inttypes.h>
#include <string.h>

#include "explain/run_verdict.h"
#include "mp4/video_state.h"
#include "tool/movie_index.h"
#include "wording/codec_names.h"
#include "wording/printable.h"

static bool is_decodable(const std::string& format) {
    return format == "avc1" || format == "mp4v" || format == "s263";
}

static bool is_protected(const std::string& format) { return format == "encv" || format == "drmi"; }

static void explain_missing_movie(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    if (!facts.has_known_box) {
        verdict_fail(verdict, "", "It is no MP4, QuickTime or 3GPP file, whatever its name says.");
    } else if (facts.declared_end != 0) {
        verdict_fail(verdict, "Copy the file again, or let its recorder finish it.",
                     "The file is cut off: it ends at %" PRId64
                     ", its %s box should go on to %" PRId64
                     ", and the index (moov) that would follow is missing.",
                     file_size, facts.passing.type.c_str(), facts.declared_end);
    } else {
        verdict_fail(verdict, "Let the recorder finish the file, or copy it again.",
                     "The file has no index (moov).");
    }
}

// The reader trusts the sizes of metadata boxes and finds only part of some movies.
static void explain_unread_movie(const BoxFacts& facts, const ParseContext& context,
                                 Verdict* verdict) {
    if (!facts.video.is_video && !facts.misfit.type.empty()) {
        verdict_fail(verdict, "Copy the file again.",
                     "The index is damaged: the size of its %s box at %" PRId64
                     " is wrong, and no video track is found.",
                     facts.misfit.type.c_str(), facts.misfit.offset);
    } else if (!facts.video.is_video) {
        verdict_fail(verdict, "", "The file has no video track.");
    } else if (!facts.video.skipped_type.empty() && !context.info.has_video) {
        verdict_fail(verdict, kCopyStreams,
                     "A box of the video track (%s) has a 64-bit or open size; such a one is "
                     "skipped.",
                     facts.video.skipped_type.c_str());
    } else if (!context.info.has_video && !facts.metadata.type.empty()) {
        verdict_fail(verdict, kCopyStreams,
                     "The metadata in front of the video track (%s at %" PRId64
                     ") end with four zero bytes, or have no version: the rest of the movie is "
                     "taken for a part of them.",
                     facts.metadata.type.c_str(), facts.metadata.offset);
    } else if (!context.info.has_video) {
        verdict_fail(verdict, kCopyStreams,
                     "The reader does not get as far as the video track: the sizes of the boxes in "
                     "front of it are wrong.");
    }
}

static void explain_codec(const BoxFacts& facts, Verdict* verdict) {
    const TrackFacts& video = facts.video;
    if (is_protected(video.format)) {
        verdict_fail(verdict, "", "The video is protected (%s): its pictures are encrypted.",
                     video.format.c_str());
    } else if (video.format.empty()) {
        verdict_fail(verdict, kCopyStreams, "The video track does not say what codec it has.");
    } else if (!is_decodable(video.format)) {
        const CodecName& known = codec_name(video.format);
        verdict_fail(verdict, known.advice,
                     "The %s codec is %s (%s); H.264 (avc1), MPEG-4 Part 2 (mp4v) and H.263 (s263) "
                     "can be decoded.",
                     facts.video_tracks > 1 ? "last video track's" : "video's",
                     *known.name ? known.name : "not known here", printable(video.format).c_str());
    } else {
        verdict_fail(verdict, kCopyStreams,
                     "The video's sample description (stsd) cannot be read: its size is wrong%s.",
                     !video.skipped_type.empty() ? ", 64-bit or open" : "");
    }
}

static void explain_fragments(const BoxFacts& facts, Verdict* verdict) {
    if (facts.random_access_tables == 0) {
        verdict_fail(verdict, kCopyStreams,
                     "The movie is fragmented and has no random access table (mfra), so its key "
                     "frames cannot be found.");
    } else if (facts.last_track_id != facts.video.id) {
        verdict_fail(verdict, kCopyStreams,
                     "The movie is fragmented, and its last track is not the video but another "
                     "one; key frames are looked for in the last track.");
    } else if (!facts.has_video_random_access) {
        verdict_fail(verdict, kCopyStreams,
                     "The movie's random access table (tfra) names no key frame of the video "
                     "track.");
    } else if (g_video_state.fragments.has_table && facts.random_access_entries == 0) {
        verdict_fail(verdict, kCopyStreams, "The video's random access table (tfra) is empty.");
    } else if (!g_video_state.fragments.has_table) {
        verdict_fail(verdict, kCopyStreams,
                     "The video's random access table (tfra) is passed over: no track run stands "
                     "in front of it, or it has a 64-bit size or too many entries.");
    }
}

static void explain_missing_key_frames(const BoxFacts& facts, Verdict* verdict) {
    const TrackFacts& video = facts.video;
    if (!video.has_sync_samples) {
        verdict_fail(verdict, kEncodeAgain,
                     "The video has no table of key frames (stss): all of its pictures count as "
                     "key frames, and none is listed.");
    } else if (video.skipped_type == "stss") {
        verdict_fail(verdict, kCopyStreams,
                     "The video's table of key frames (stss) has a 64-bit or open size; such a box "
                     "is skipped.");
    } else {
        verdict_fail(verdict, kEncodeAgain,
                     "The video's table of key frames (stss) is empty, or cannot be read.");
    }
}

static void explain_missing_tables(const TrackFacts& video, Verdict* verdict) {
    const VideoState& state = g_video_state;
    if (video.has_large_chunk_offsets && !video.has_chunk_offsets) {
        verdict_fail(verdict, kCopyStreams,
                     "The video has 64-bit chunk offsets only (co64), which are not read.");
    } else if (video.has_compact_sizes && !state.sample_sizes.is_present) {
        verdict_fail(verdict, kCopyStreams,
                     "The video has compact sample sizes (stz2), which are not read.");
    } else if (video.has_constant_size && state.sample_sizes.is_present) {
        verdict_fail(verdict, kEncodeAgain,
                     "All samples of the video have one size without a table; they count as "
                     "empty.");
    } else if (!movie_has_needed_tables() || !state.sample_sizes.is_present) {
        verdict_fail(verdict, kCopyStreams,
                     "The video's sample tables are missing, empty or cannot be read:%s%s%s%s.",
                     state.time_to_sample.count != 0 ? "" : " stts",
                     state.sample_to_chunk.count != 0 ? "" : " stsc",
                     state.chunk_offsets.count != 0 ? "" : " stco",
                     state.sample_sizes.is_present ? "" : " stsz");
    }
}

static void explain_avc_configuration(Verdict* verdict) {
    const VideoState& state = g_video_state;
    if (!state.sequence_sets.bytes) {
        verdict_fail(verdict, kCopyStreams, "The H.264 decoder configuration (avcC) is missing.");
    } else if (state.sequence_sets.length == 0) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.264 decoder configuration (avcC) has no sequence parameter set.");
    } else if (state.picture_sets.length == 0) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.264 decoder configuration (avcC) has no picture parameter set.");
    }
}

// The codec of an mp4v track that is another one; null for MPEG-4 Part 2.
static const char* name_of_object_type(uint8_t object_type) {
    if (object_type >= 0x60 && object_type <= 0x65) return "MPEG-2 video";
    if (object_type == 0x6a) return "MPEG-1 video";
    if (object_type == 0x6c) return "JPEG";
    return object_type == 0x6d ? "PNG" : nullptr;
}

static void explain_mpeg4_configuration(const TrackFacts& video, Verdict* verdict) {
    if (g_video_state.mpeg4_config.bytes) return;
    const char* const other = name_of_object_type(video.esds_object_type);
    if (other) {
        verdict_fail(verdict, kEncodeAgain,
                     "The video's codec is %s (mp4v with object type %d), which is not decoded.",
                     other, video.esds_object_type);
    } else if (!video.has_esds) {
        verdict_fail(verdict, kEncodeAgain, "The MPEG-4 decoder configuration (esds) is missing.");
    } else if (!video.has_esds_in_place) {
        verdict_fail(verdict, kCopyStreams,
                     "The MPEG-4 decoder configuration (esds) is not the first box of its sample "
                     "description, where it is looked for.");
    } else {
        verdict_fail(verdict, kEncodeAgain,
                     "The MPEG-4 decoder configuration (esds) does not start with a visual object "
                     "sequence header.");
    }
}

static void explain_configuration(const TrackFacts& video, Verdict* verdict) {
    if (g_video_state.codec_kind == kCodecAvc) explain_avc_configuration(verdict);
    if (g_video_state.codec_kind == kCodecMpeg4) explain_mpeg4_configuration(video, verdict);
    if (g_video_state.codec_kind == kCodecH263 && !g_video_state.h263_config.bytes) {
        verdict_fail(verdict, kCopyTo3gp, "The H.263 decoder configuration (d263) is missing.");
    }
}

static void explain_cut_index(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    const bool is_fragment = facts.has_fragments && facts.random_access_tables == 0;
    if (facts.declared_end == 0) return;
    if (!is_fragment && facts.passing.type != "moov") return;
    verdict_fail(verdict, "Copy the file again, or let its recorder finish it.",
                 "The file is cut off: it ends at %" PRId64 ", its %s box should go on to %" PRId64
                 ", and %s.",
                 file_size, facts.passing.type.c_str(), facts.declared_end,
                 is_fragment ? "the list of key frames (mfra) that would follow is missing"
                             : "a part of the index is missing");
}

void explain_container(const BoxFacts& facts, const ParseContext& context, Verdict* verdict) {
    const VideoState& state = g_video_state;
    const bool needs_fragments =
        state.fragments.has_table || (facts.has_fragments && state.sync_sample_count == 0);
    if (!facts.has_movie) explain_missing_movie(facts, context.info.file_size, verdict);
    if (state.codec_kind == kCodecNone || state.sync_sample_count == 0 ||
        !movie_has_needed_tables()) {
        explain_cut_index(facts, context.info.file_size, verdict);
    }
    explain_unread_movie(facts, context, verdict);
    if (state.codec_kind == kCodecNone) explain_codec(facts, verdict);
    if (needs_fragments) explain_fragments(facts, verdict);
    if (state.sync_sample_count == 0) explain_missing_key_frames(facts, verdict);
    if (!state.fragments.has_table) explain_missing_tables(facts.video, verdict);
    explain_configuration(facts.video, verdict);
}
