// SPDX-License-Identifier: BSD-2-Clause
#include "movie/movie_headers.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <tuple>
#include <utility>

#include "movie/intra_probe.h"

constexpr size_t kMaxTracks = 1024;
constexpr uint64_t kMaxEdits = 256;

// Times that no header states are written as all ones.
static uint64_t stated(uint64_t duration, bool is_wide) {
    return duration == (is_wide ? UINT64_MAX : UINT32_MAX) ? 0 : duration;
}

// The first half of "mvhd" and "mdhd": version, times of creation, time scale, duration.
struct TimeHeader {
    uint32_t time_scale;
    uint64_t duration;
    uint64_t end;
};

static TimeHeader read_time_header(SourceReader* reader, const Box& box) {
    const bool is_wide = reader->u8_at(box.content) == 1;
    const uint64_t scale = box.content + (is_wide ? 20 : 12);
    const uint64_t duration = is_wide ? reader->u64_at(scale + 4) : reader->u32_at(scale + 4);
    return {std::max<uint32_t>(reader->u32_at(scale), 1), stated(duration, is_wide),
            scale + (is_wide ? 12 : 8)};
}

static DisplayMatrix read_matrix(SourceReader* reader, uint64_t offset) {
    const auto entry = [&](int i) {
        return int64_t{static_cast<int32_t>(reader->u32_at(offset + static_cast<uint64_t>(4 * i)))};
    };
    const DisplayMatrix matrix = {entry(0), entry(1), entry(3), entry(4)};
    const bool is_stated = (matrix.a | matrix.b | matrix.c | matrix.d) != 0;
    return is_stated ? matrix : DisplayMatrix{};
}

static void read_track_header(SourceReader* reader, const Box& tkhd, VideoTrack* track) {
    const bool is_wide = reader->u8_at(tkhd.content) == 1;
    const uint64_t id = tkhd.content + (is_wide ? 20 : 12);
    const uint64_t matrix = id + (is_wide ? 32 : 28);
    track->is_enabled = (reader->u32_at(tkhd.content) & 1) != 0;
    track->id = reader->u32_at(id);
    track->matrix = read_matrix(reader, matrix);
    track->width = reader->u32_at(matrix + 36);
    track->height = reader->u32_at(matrix + 40);
}

static void read_edits(SourceReader* reader, const Box& elst, std::vector<Edit>* edits) {
    const bool is_wide = reader->u8_at(elst.content) == 1;
    const Table table = table_of(reader, elst, is_wide ? 20 : 12);
    for (uint64_t i = 0; i < std::min(table.count, kMaxEdits); ++i) {
        const uint64_t at = table.offset + i * table.entry_size;
        Edit edit;
        if (is_wide) {
            const uint64_t duration = reader->u64_at(at);
            edit.duration = static_cast<int64_t>(std::min<uint64_t>(duration, INT64_MAX));
            edit.media_time = static_cast<int64_t>(reader->u64_at(at + 8));
        } else {
            edit.duration = reader->u32_at(at);
            edit.media_time = static_cast<int32_t>(reader->u32_at(at + 4));
        }
        edits->push_back(edit);
    }
}

static void read_sizes(SourceReader* reader, const Box& box, SampleTables* tables) {
    if (box.length() < 12) return;
    const uint32_t count = reader->u32_at(box.content + 8);
    const uint32_t field = reader->u32_at(box.content + 4);
    if (box.type == fourcc("stsz") && field != 0) {
        tables->sample_size = field;
        tables->sample_count = count;
        return;
    }
    tables->size_bits = box.type == fourcc("stsz") ? 32 : field & 0xff;
    if (tables->size_bits != 4 && tables->size_bits != 8 && tables->size_bits % 16 != 0) return;
    if (tables->size_bits == 0 || tables->size_bits > 32) return;
    tables->sizes = {box.content + 12, count, 0};
    const uint64_t stored = (box.end - tables->sizes.offset) * 8 / tables->size_bits;
    tables->sample_count = static_cast<uint32_t>(std::min<uint64_t>(count, stored));
}

static void read_tables(SourceReader* reader, const Box& stbl, VideoTrack* track) {
    SampleTables* const tables = &track->tables;
    BoxWalk walk(reader, stbl);
    for (Box box; walk.next(&box);) {
        switch (box.type) {
            case fourcc("stsd"):
                if (track->entries.empty()) track->entries = read_sample_entries(reader, box);
                break;
            case fourcc("stts"):
                tables->durations = table_of(reader, box, 8);
                break;
            case fourcc("ctts"):
                tables->compositions = table_of(reader, box, 8);
                break;
            case fourcc("stss"):
                tables->sync = table_of(reader, box, 4);
                break;
            case fourcc("stsc"):
                tables->chunk_runs = table_of(reader, box, 12);
                break;
            case fourcc("stsz"):
            case fourcc("stz2"):
                read_sizes(reader, box, tables);
                break;
            case fourcc("stco"):
                tables->chunks = table_of(reader, box, 4);
                break;
            case fourcc("co64"):
                tables->chunks = table_of(reader, box, 8);
                break;
            default:
                break;
        }
    }
}

// Whether the track is a video, by its handler or else by the header of its media; others are left
// half read.
static bool read_track(SourceReader* reader, const Box& trak, VideoTrack* track) {
    Box box, media, information;
    if (!find_child(reader, trak, fourcc("mdia"), &media)) return false;
    if (!find_child(reader, media, fourcc("minf"), &information)) return false;
    if (find_child(reader, media, fourcc("hdlr"), &box)) {
        track->is_of_other_kind = reader->u32_at(box.content + 8) != fourcc("vide");
    }
    if (track->is_of_other_kind && !find_child(reader, information, fourcc("vmhd"), &box)) {
        return false;
    }
    if (!find_child(reader, information, fourcc("stbl"), &box)) return false;
    read_tables(reader, box, track);
    if (find_child(reader, media, fourcc("mdhd"), &box)) {
        const TimeHeader times = read_time_header(reader, box);
        track->time_scale = times.time_scale;
        track->duration = times.duration;
    }
    if (find_child(reader, trak, fourcc("tkhd"), &box)) read_track_header(reader, box, track);
    if (find_child(reader, trak, fourcc("edts"), &box) &&
        find_child(reader, box, fourcc("elst"), &box)) {
        read_edits(reader, box, &track->edits);
    }
    return !track->entries.empty();
}

// Tracks that hold the pictures of chapters (QuickTime's track references).
static void note_chapter_tracks(SourceReader* reader, const Box& trak, std::vector<uint32_t>* ids) {
    Box references, chapters;
    if (!find_child(reader, trak, fourcc("tref"), &references) ||
        !find_child(reader, references, fourcc("chap"), &chapters)) {
        return;
    }
    const uint64_t count = std::min<uint64_t>(chapters.length() / 4, kMaxTracks);
    for (uint64_t i = 0; i < count && ids->size() < kMaxTracks; ++i) {
        ids->push_back(reader->u32_at(chapters.content + 4 * i));
    }
}

static void read_extends(SourceReader* reader, const Box& mvex, MovieHeaders* headers) {
    headers->has_fragments = true;
    BoxWalk walk(reader, mvex);
    for (Box box; walk.next(&box);) {
        if (box.type == fourcc("mehd") && box.length() >= 8) {
            const bool is_wide = reader->u8_at(box.content) == 1;
            const uint64_t duration =
                is_wide ? reader->u64_at(box.content + 4) : reader->u32_at(box.content + 4);
            headers->fragment_duration = stated(duration, is_wide);
        } else if (box.type == fourcc("trex") && headers->defaults.size() < kMaxTracks) {
            FragmentDefaults defaults;
            uint32_t* const fields[] = {&defaults.track_id, &defaults.description,
                                        &defaults.duration, &defaults.size, &defaults.flags};
            for (size_t i = 0; i < std::size(fields); ++i) {
                *fields[i] = reader->u32_at(box.content + 4 + 4 * i);
            }
            headers->defaults.push_back(defaults);
        }
    }
}

static const SampleEntry* decodable_entry(const VideoTrack& track) {
    for (const SampleEntry& entry : track.entries) {
        if (entry.description.refusal == MovieRefusal::kNone) return &entry;
    }
    return nullptr;
}

namespace {

// What a track is chosen by.
struct TrackFacts {
    Box trak;
    uint32_t id;
    bool is_cover, is_of_other_kind, has_samples, is_enabled, is_decodable;
    int64_t duration_us;
    uint64_t area;
    // Of two tracks the one with the greater rank is the video.
    auto rank(bool is_chapter, bool has_fragments) const {
        return std::tuple(!is_chapter && !is_cover, !is_of_other_kind, has_fragments || has_samples,
                          is_enabled, is_decodable, duration_us, area);
    }
};

}  // namespace

static TrackFacts facts_of(const VideoTrack& track, const Box& trak) {
    const int64_t duration = static_cast<int64_t>(std::min<uint64_t>(track.duration, INT64_MAX));
    return {trak,
            track.id,
            track.entries.front().is_picture && track.tables.sample_count <= 1,
            track.is_of_other_kind,
            track.tables.sample_count != 0,
            track.is_enabled,
            decodable_entry(track) != nullptr,
            rescale(duration, track.time_scale, kMicroseconds),
            uint64_t{track.width} * track.height};
}

// Names of formats are many: what the first sample of an unknown one begins with tells.
static void recognise_mpeg4(SourceReader* reader, VideoTrack* video) {
    const Table& chunks = video->tables.chunks;
    VideoDescription* const description = &video->entries.front().description;
    if (description->refusal != MovieRefusal::kOtherCodec || chunks.count == 0) return;
    const uint64_t at =
        chunks.entry_size == 8 ? reader->u64_at(chunks.offset) : reader->u32_at(chunks.offset);
    reader->expect(kMpeg4HeaderBytes);
    const uint8_t* const bytes = reader->at(at, kMpeg4HeaderBytes);
    if (!bytes || !begins_like_mpeg4({bytes, kMpeg4HeaderBytes})) return;
    description->codec = VideoCodec::kMpeg4;
    description->refusal = MovieRefusal::kNone;
}

MovieRefusal read_movie_headers(SourceReader* reader, const Box& moov, MovieHeaders* headers) {
    std::vector<uint32_t> chapters;
    std::vector<TrackFacts> tracks;
    uint64_t last_read = 0;  // the track that `headers` has
    bool names_other_files = false;
    BoxWalk walk(reader, moov);
    for (Box box; walk.next(&box);) {
        if (box.type == fourcc("cmov")) return MovieRefusal::kCompressedHeader;
        if (box.type == fourcc("mvex")) read_extends(reader, box, headers);
        if (box.type == fourcc("rmra")) names_other_files = true;
        if (box.type == fourcc("mvhd")) {
            const TimeHeader times = read_time_header(reader, box);
            headers->time_scale = times.time_scale;
            headers->matrix = read_matrix(reader, times.end + 16);
        }
        if (box.type != fourcc("trak") || tracks.size() == kMaxTracks) continue;
        note_chapter_tracks(reader, box, &chapters);
        VideoTrack track;
        if (!read_track(reader, box, &track)) continue;
        tracks.push_back(facts_of(track, box));
        headers->video = std::move(track);
        last_read = box.begin;
    }
    const TrackFacts* best = nullptr;
    const auto rank = [&](const TrackFacts& track) {
        const bool is_chapter =
            std::find(chapters.begin(), chapters.end(), track.id) != chapters.end();
        return track.rank(is_chapter, headers->has_fragments);
    };
    for (const TrackFacts& track : tracks) {
        if (!best || rank(track) > rank(*best)) best = &track;
    }
    const bool is_film = best && std::get<0>(rank(*best));
    if (!is_film) {
        return names_other_files ? MovieRefusal::kReferenceMovie : MovieRefusal::kNoVideo;
    }
    if (best->trak.begin != last_read) {
        headers->video = {};
        read_track(reader, best->trak, &headers->video);
    }
    if (headers->video.entries.empty()) return MovieRefusal::kNoVideo;  // the work is used up
    if (!decodable_entry(headers->video)) recognise_mpeg4(reader, &headers->video);
    if (decodable_entry(headers->video)) return MovieRefusal::kNone;
    return headers->video.entries.front().description.refusal;
}
