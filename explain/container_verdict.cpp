// SPDX-License-Identifier: BSD-2-Clause
// Why the container gives no key frames.
#include <string>

#include "explain/run_verdict.h"
#include "mp4/video_state.h"
#include "runtime/accounted_memory.h"
#include "tool/movie_index.h"
#include "wording/codec_names.h"
#include "wording/printable.h"

static bool is_decodable(const std::string& format) {
    return format == "avc1" || format == "mp4v" || format == "s263";
}

static bool is_protected(const std::string& format) { return format == "encv" || format == "drmi"; }

// Where the file ends, which box goes on and to where.
static void fail_as_cut(const BoxFacts& facts, int64_t file_size, Reason reason, Verdict* verdict) {
    verdict_fail(
        verdict, reason,
        {std::to_string(file_size), facts.passing.type, std::to_string(facts.declared_end)});
}

static void explain_missing_movie(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    if (!facts.has_known_box) return verdict_fail(verdict, Reason::kNotAMovie);
    if (facts.declared_end == 0) return verdict_fail(verdict, Reason::kNoIndex);
    fail_as_cut(facts, file_size, Reason::kCutBeforeIndex, verdict);
}

static void fail_at(const BoxPlace& place, Reason reason, Verdict* verdict) {
    verdict_fail(verdict, reason, {place.type, std::to_string(place.offset)});
}

// The reader trusts the sizes of metadata boxes and finds only part of some movies.
static void explain_unread_movie(const BoxFacts& facts, const ParseContext& context,
                                 Verdict* verdict) {
    if (!facts.video.is_video && !facts.misfit.type.empty()) {
        fail_at(facts.misfit, Reason::kIndexDamaged, verdict);
    } else if (!facts.video.is_video) {
        verdict_fail(verdict, Reason::kNoVideo);
    } else if (context.info.has_video) {
        return;
    } else if (!facts.video.skipped_type.empty()) {
        verdict_fail(verdict, Reason::kTrackBoxSkipped, {facts.video.skipped_type});
    } else if (!facts.metadata.type.empty()) {
        fail_at(facts.metadata, Reason::kMetadataFirst, verdict);
    } else {
        verdict_fail(verdict, Reason::kVideoNotReached);
    }
}

static void explain_codec(const BoxFacts& facts, Verdict* verdict) {
    const std::string& format = facts.video.format;
    if (is_protected(format)) {
        verdict_fail(verdict, Reason::kProtected, {format});
    } else if (format.empty()) {
        verdict_fail(verdict, Reason::kNoCodec);
    } else if (!is_decodable(format)) {
        const CodecName& known = codec_name(format);
        verdict_fail(
            verdict, facts.video_tracks > 1 ? Reason::kOtherCodecOfLastTrack : Reason::kOtherCodec,
            {*known.name ? known.name : "not known here", printable(format), known.advice});
    } else {
        verdict_fail(verdict, Reason::kDescriptionUnreadable);
    }
}

static void explain_fragments(const BoxFacts& facts, bool has_table, Verdict* verdict) {
    if (facts.random_access_tables == 0) {
        verdict_fail(verdict, Reason::kNoRandomAccessTables);
    } else if (facts.last_track_id != facts.video.id) {
        verdict_fail(verdict, Reason::kLastTrackNotVideo);
    } else if (!facts.has_video_random_access) {
        verdict_fail(verdict, Reason::kNoRandomAccessOfVideo);
    } else if (!has_table) {
        verdict_fail(verdict, Reason::kRandomAccessSkipped);
    } else if (facts.random_access_entries == 0) {
        verdict_fail(verdict, Reason::kRandomAccessEmpty);
    }
}

static void explain_missing_key_frames(const TrackFacts& video, const VideoState& state,
                                       Verdict* verdict) {
    if (state.sample_sizes.is_present && state.sample_sizes.count == 0) {
        verdict_fail(verdict, Reason::kNoPictures);
    } else if (!video.has_sync_samples) {
        verdict_fail(verdict, Reason::kNoKeyFrameTable);
    } else if (video.skipped_type == "stss") {
        verdict_fail(verdict, Reason::kKeyFrameTableSkipped);
    } else {
        verdict_fail(verdict, Reason::kKeyFrameTableEmpty);
    }
}

static void explain_missing_tables(const TrackFacts& video, const VideoState& state,
                                   Verdict* verdict) {
    if (video.has_large_chunk_offsets && !video.has_chunk_offsets) {
        verdict_fail(verdict, Reason::kLargeOffsets);
    } else if (video.has_compact_sizes && !state.sample_sizes.is_present) {
        verdict_fail(verdict, Reason::kCompactSizes);
    } else if (video.has_constant_size && state.sample_sizes.is_present) {
        verdict_fail(verdict, Reason::kConstantSize);
    } else if (!movie_index_has_tables(&state) || !state.sample_sizes.is_present) {
        std::string missing;
        if (state.time_to_sample.count == 0) missing += " stts";
        if (state.sample_to_chunk.count == 0) missing += " stsc";
        if (state.chunk_offsets.count == 0) missing += " stco";
        if (!state.sample_sizes.is_present) missing += " stsz";
        verdict_fail(verdict, Reason::kTablesMissing, {missing});
    }
}

static void explain_avc_configuration(const VideoState& state, Verdict* verdict) {
    if (!state.sequence_sets.bytes) {
        verdict_fail(verdict, Reason::kNoAvcConfiguration);
    } else if (state.sequence_sets.length == 0) {
        verdict_fail(verdict, Reason::kNoSequenceSet);
    } else if (state.picture_sets.length == 0) {
        verdict_fail(verdict, Reason::kNoPictureSet);
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
    const char* const other = name_of_object_type(video.esds_object_type);
    if (other) {
        verdict_fail(verdict, Reason::kOtherCodecInMpeg4,
                     {other, std::to_string(video.esds_object_type)});
    } else if (!video.has_esds) {
        verdict_fail(verdict, Reason::kNoMpeg4Configuration);
    } else if (!video.has_esds_in_place) {
        verdict_fail(verdict, Reason::kMpeg4ConfigurationElsewhere);
    } else {
        verdict_fail(verdict, Reason::kMpeg4ConfigurationUnknown);
    }
}

static void explain_configuration(const TrackFacts& video, const VideoState& state,
                                  Verdict* verdict) {
    if (state.codec_kind == kCodecAvc) explain_avc_configuration(state, verdict);
    if (state.codec_kind == kCodecMpeg4 && !state.mpeg4_config.bytes) {
        explain_mpeg4_configuration(video, verdict);
    }
    if (state.codec_kind == kCodecH263 && !state.h263_config.bytes) {
        verdict_fail(verdict, Reason::kNoH263Configuration);
    }
}

static void explain_cut_index(const BoxFacts& facts, int64_t file_size, Verdict* verdict) {
    const bool is_fragment = facts.has_fragments && facts.random_access_tables == 0;
    if (facts.declared_end == 0) return;
    if (!is_fragment && facts.passing.type != "moov") return;
    fail_as_cut(facts, file_size, is_fragment ? Reason::kFragmentsCut : Reason::kIndexCut, verdict);
}

// So many entries are not read, nor is anything left of what was.
constexpr uint32_t kTooManyRandomAccessEntries = kUpnpMaxBlock / 32 + 1;

void explain_container(const BoxFacts& facts, const ParseContext& context, Verdict* verdict) {
    const VideoState& state = *context.video;
    const bool needs_fragments =
        state.fragments.has_table || (facts.has_fragments && state.sync_sample_count == 0);
    if (!facts.has_movie) explain_missing_movie(facts, context.info.file_size, verdict);
    if (state.codec_kind == kCodecNone || state.sync_sample_count == 0 ||
        !movie_index_has_tables(&state)) {
        explain_cut_index(facts, context.info.file_size, verdict);
    }
    explain_unread_movie(facts, context, verdict);
    if (facts.random_access_entries >= kTooManyRandomAccessEntries) {
        verdict_fail(verdict, Reason::kTooManyFragments);
    }
    if (state.codec_kind == kCodecNone) explain_codec(facts, verdict);
    if (needs_fragments) explain_fragments(facts, state.fragments.has_table, verdict);
    if (state.sync_sample_count == 0) explain_missing_key_frames(facts.video, state, verdict);
    if (!state.fragments.has_table) explain_missing_tables(facts.video, state, verdict);
    explain_configuration(facts.video, state, verdict);
}
