// SPDX-License-Identifier: BSD-2-Clause
// Key frames of movies by the newer reader. Six bytes choose what is asked for; if the first of
// them is odd, a film of tracks and fragments is written, otherwise a movie as for the other
// targets.
#include <algorithm>

#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "movie/movie.h"
#include "tests/support/film_builder.h"
#include "tests/support/memory_source.h"

static std::vector<FilmSample> write_samples(Choices* c, uint32_t first_number) {
    std::vector<FilmSample> samples(1 + c->byte() % 8);
    for (size_t i = 0; i < samples.size(); ++i) {
        FilmSample* const sample = &samples[i];
        const uint32_t number = first_number + static_cast<uint32_t>(i);
        sample->is_sync = i == 0 || c->once_in(4);
        sample->bytes = sample->is_sync ? idr_sample(number) : predicted_sample(number);
        if (c->once_in(8)) sample->is_sync = !sample->is_sync;
        sample->duration = c->once_in(8) ? c->value(20) : 10;
        if (c->once_in(4)) sample->composition = static_cast<int32_t>(c->value(20));
        if (c->once_in(8)) sample->description = c->value(3);
    }
    return samples;
}

static std::string write_edits(Choices* c) {
    const uint32_t count = c->byte() % 3;
    std::string edits = u32(count);
    for (uint32_t i = 0; i < count; ++i) {
        edits += words({c->value(9000), c->flag() ? UINT32_MAX : c->value(50), 0x10000});
    }
    return count != 0 ? edits : "";
}

static TrackSpec write_track(Choices* c) {
    TrackSpec track;
    track.time_scale = c->once_in(8) ? c->value(9) : 10;
    track.samples_per_chunk = 1 + c->byte() % 4;
    track.size_bits = 8 * (c->byte() % 3);
    if (track.size_bits == 0) track.size_bits = 32;
    track.has_large_offsets = c->flag();
    track.has_sync_table = !c->once_in(4);
    if (c->once_in(4)) track.edits = write_edits(c);
    if (c->once_in(8)) track.matrix[c->byte() % 9] = c->value(0x10000);
    if (c->once_in(4)) {
        const int length_size = 1 + static_cast<int>(c->byte() % 4);
        track.entries.push_back(visual_entry_of(
            c->flag() ? "avc1" : "encv", avc_configuration({c->bytes(9)}, {"\x68"}, length_size)));
    }
    return track;
}

static TrafSpec write_traf(Choices* c, uint32_t number) {
    TrafSpec traf;
    traf.samples = write_samples(c, number);
    traf.track = c->once_in(4) ? 2 : 1;
    if (!c->once_in(4)) traf.time = c->once_in(16) ? int64_t{c->value(99)} << 31 : 80 * number;
    traf.base = static_cast<TrafSpec::Base>(c->byte() % 3);
    traf.states_each = !c->flag();
    traf.default_flags = c->flag() ? 0 : 0x1010000;
    traf.runs = 1 + c->byte() % 3;
    traf.has_data_offset = !c->once_in(8);
    return traf;
}

static std::string write_index(Choices* c, size_t following) {
    const uint32_t count = c->byte() % 4;
    std::string index = words({1, 10, c->value(99), c->once_in(4) ? c->value(99) : 0}) + u16(0);
    index += u16(count);
    for (uint32_t i = 0; i < count; ++i) {
        index += words({c->flag() ? following : c->value(2000), c->value(99), 0});
    }
    return full_box("sidx", index);
}

static std::string write_film(Choices* c) {
    TrackSpec track = write_track(c);
    const bool has_samples = c->flag();
    if (has_samples) track.samples = write_samples(c, 0);
    std::string file = has_samples && !c->flag() ? plain_film(track) : fragmented_head(track);
    std::string entries;
    uint32_t count = c->byte() % 5;
    // Enough of them for the reader to look for the place in the file.
    if (c->once_in(16)) count = 100 + c->byte();
    for (uint32_t number = 0; number < count; ++number) {
        std::vector<TrafSpec> tracks = {write_traf(c, number)};
        if (c->once_in(4)) tracks.push_back(write_traf(c, number));
        const std::string fragment = film_fragment(tracks, file.size());
        if (c->once_in(4)) file += write_index(c, fragment.size());
        entries += words({80 * number, c->once_in(8) ? c->value(9) : file.size()}) + "\1\1\1";
        file += fragment;
    }
    if (c->once_in(4)) {
        const std::string table = full_box("tfra", words({1, 0, count}) + entries);
        file += box("mfra", table + full_box("mfro", u32(table.size() + 24)));
    }
    return file;
}

// Puts the last movie box into one that claims to be compressed.
static void compress_header(std::string* file) {
    const size_t type = file->rfind("moov");
    if (type == file->npos || type < 4) return;
    const std::string movie = file->substr(type - 4);
    const std::string data = u32(static_cast<uint32_t>(movie.size())) + movie;
    file->replace(type - 4, file->npos,
                  box("moov", box("cmov", box("dcom", "zlib") + box("cmvd", data))));
}

static void expect(bool is_so) {
    if (!is_so) abort();
}

void run_target(Choices* c) {
    const bool is_film = c->flag();
    const size_t count = 1 + c->byte() % 32;
    const int64_t time_us = static_cast<int64_t>(c->word()) * 100000;
    const uint32_t zeros_behind = c->word();
    std::string file;
    if (is_film) {
        Choices changes = c->part(100);
        file = write_film(c);
        if (c->once_in(8)) compress_header(&file);
        change_boxes(&changes, &file);
    } else {
        file = make_file(c);
    }
    const uint64_t size = file.size() + (uint64_t{zeros_behind} << 24);
    MemorySource source(std::move(file), size);
    Movie movie(&source, inflate_as_it_is);
    note_result(static_cast<int>(movie.refusal()));
    const std::vector<MovieKeyFrame> found = movie.key_frames_from(time_us, count);
    expect(found.size() <= count && movie.duration_us() >= 0);
    expect(movie.refusal() == MovieRefusal::kNone || found.empty());
    expect(movie.orientation() >= Orientation::kUpright);
    for (size_t i = 0; i < movie.descriptions().size(); ++i) expect(movie.pixel_aspect(i) >= 0);
    for (const MovieKeyFrame& key_frame : found) {
        expect(key_frame.size != 0 && key_frame.offset <= size - key_frame.size);
        expect(key_frame.time_us >= 0 || found.size() == 1);
        const VideoDescription& description = movie.descriptions().at(key_frame.description);
        expect(description.refusal == MovieRefusal::kNone);
        std::vector<uint8_t> sample;
        expect(movie.read_sample(key_frame, &sample) || key_frame.size > kMaxSampleSize);
        note_result(sample.data(), sample.size());
        note_result(static_cast<int>(key_frame.time_us));
    }
}
