// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/film_builder.h"

#include <algorithm>

#include "tests/support/bit_packer.h"

static std::string unit_sample(char header, char slice, uint32_t number, uint32_t length,
                               uint32_t prefix_size) {
    std::string unit = {header, slice};
    unit += u32(number);
    unit.resize(length - prefix_size, static_cast<char>('a' + number % 26));
    return u32(unit.size()).substr(4 - prefix_size) + unit;
}

std::string idr_sample(uint32_t number, uint32_t length, uint32_t prefix_size) {
    return unit_sample('\x65', '\x88', number, length, prefix_size);
}

std::string predicted_sample(uint32_t number, uint32_t length, uint32_t prefix_size) {
    return unit_sample('\x41', '\xe0', number, length, prefix_size);
}

std::string plain_avc_entry() { return avc_entry("\x67sequence", "\x68picture"); }

std::vector<FilmSample> film_samples(uint32_t count, uint32_t distance) {
    std::vector<FilmSample> samples(count);
    for (uint32_t i = 0; i < count; ++i) {
        samples[i].is_sync = i % distance == 0;
        samples[i].bytes = samples[i].is_sync ? idr_sample(i) : predicted_sample(i);
    }
    return samples;
}

// Samples of the chunk that starts with that one.
static size_t chunk_length(const TrackSpec& track, size_t first) {
    size_t end = first;
    while (end < track.samples.size() && end - first < track.samples_per_chunk &&
           track.samples[end].description == track.samples[first].description) {
        ++end;
    }
    return end - first;
}

static std::string counted(const std::string& type, size_t count, const std::string& entries) {
    return full_box(type, u32(count) + entries);
}

static std::string size_box(const TrackSpec& track) {
    const std::vector<FilmSample>& samples = track.samples;
    if (track.size_bits == 0) {
        return full_box("stsz", words({samples[0].bytes.size(), samples.size()}));
    }
    BitPacker sizes;
    for (const FilmSample& sample : samples) {
        sizes.u(static_cast<int>(track.size_bits), sample.bytes.size());
    }
    const bool is_plain = track.size_bits == 32;
    return full_box(is_plain ? "stsz" : "stz2",
                    words({is_plain ? 0 : track.size_bits, samples.size()}) + sizes.str());
}

static std::string film_tables(const TrackSpec& track, uint64_t offset) {
    std::string entries, durations, compositions, runs, chunks;
    std::vector<uint64_t> sync = track.sync_numbers;
    const bool has_own_sync = sync.empty();
    for (const std::string& entry : track.entries) entries += entry;
    size_t chunk_count = 0;
    for (size_t i = 0; i < track.samples.size(); ++i) {
        const FilmSample& sample = track.samples[i];
        durations += words({1, sample.duration});
        compositions += words({1, static_cast<uint32_t>(sample.composition)});
        if (has_own_sync && sample.is_sync) sync.push_back(i + 1);
    }
    for (size_t i = 0, length; i < track.samples.size(); i += length) {
        length = chunk_length(track, i);
        runs += words({++chunk_count, length, track.samples[i].description});
        chunks += track.has_large_offsets ? u64(offset) : u32(offset);
        for (size_t k = i; k < i + length; ++k) offset += track.samples[k].bytes.size();
    }
    const size_t count = track.samples.size();
    return box("stbl", counted("stsd", track.entries.size(), entries) +
                           counted("stts", count, durations) +
                           counted("ctts", count, compositions) +
                           (track.has_sync_table ? counted("stss", sync.size(), words(sync)) : "") +
                           counted("stsc", chunk_count, runs) + size_box(track) +
                           counted(track.has_large_offsets ? "co64" : "stco", chunk_count, chunks));
}

std::string film_track(const TrackSpec& track, uint64_t first_offset) {
    // Version 1 has times and durations of 64 bits.
    const uint32_t version = track.is_wide ? 1 << 24 : 0;
    const std::string times = zeros(track.is_wide ? 16 : 8);
    const std::string header =
        full_box("tkhd",
                 times + u32(track.id) + zeros(track.is_wide ? 28 : 24) + words(track.matrix) +
                     words({track.width << 16, track.height << 16}),
                 version | track.flags);
    const std::string duration = track.is_wide ? u64(track.duration) : u32(track.duration);
    const std::string media =
        full_box("mdhd", times + u32(track.time_scale) + duration + u32(0), version) +
        handler(track.handler) + box("minf", track.media_boxes + film_tables(track, first_offset));
    const std::string edits =
        track.edits.empty() ? "" : box("edts", full_box("elst", track.edits, version));
    const std::string references = track.references.empty() ? "" : box("tref", track.references);
    return box("trak", header + edits + references + box("mdia", media));
}

std::string film_header(const std::string& boxes, uint32_t duration,
                        const std::vector<uint64_t>& matrix) {
    return box("moov", full_box("mvhd", words({0, 0, 1000, duration}) + zeros(16) + words(matrix) +
                                            zeros(28)) +
                           boxes);
}

std::string sample_data(const std::vector<FilmSample>& samples) {
    std::string data;
    for (const FilmSample& sample : samples) data += sample.bytes;
    return data;
}

static const std::string kFileType = box("ftyp", "isom" + zeros(4));

std::string plain_film(const TrackSpec& track) {
    const std::string front = kFileType + box("mdat", sample_data(track.samples));
    return front + film_header(film_track(track, kFileType.size() + 8));
}

// The samples [first, end) in a "trun".
static std::string film_run(const TrafSpec& spec, size_t first, size_t end, uint32_t data_offset) {
    const uint32_t flags = (spec.has_data_offset ? 1 : 0) | (spec.states_each ? 0xf00 : 0x204);
    std::string content = u32(end - first);
    if (spec.has_data_offset) content += u32(data_offset);
    if (!spec.states_each) content += u32(spec.samples[first].is_sync ? 0x2000000 : 0x1010000);
    for (size_t i = first; i < end; ++i) {
        const FilmSample& sample = spec.samples[i];
        if (spec.states_each) content += u32(sample.duration);
        content += u32(sample.bytes.size());
        const uint32_t flags_of_it = sample.is_sync ? 0x2000000 : 0x1010000;
        if (spec.states_each)
            content += words({flags_of_it, static_cast<uint32_t>(sample.composition)});
    }
    return full_box("trun", content, flags | 1 << 24);
}

// data: where the track's samples start, counted from the fragment.
static std::string film_traf(const TrafSpec& spec, uint64_t offset, uint64_t data,
                             uint64_t implicit_data) {
    uint32_t flags = 0;
    std::string fields = u32(spec.track);
    uint64_t base = 0;
    if (spec.base == TrafSpec::Base::kFragment) flags |= 0x20000;
    if (spec.base == TrafSpec::Base::kStated) {
        flags |= 1;
        fields += u64(offset + data);
        base = data;
    }
    if (spec.base == TrafSpec::Base::kImplicit) base = implicit_data;
    if (!spec.states_each) {
        flags |= 0x28;
        fields += words({spec.samples[0].duration, 0x1010000});  // all but the first sample
    }
    std::string boxes = full_box("tfhd", fields, flags);
    if (spec.time >= 0) {
        boxes += full_box("tfdt", u64(static_cast<uint64_t>(spec.time)), 1 << 24);
    }
    const size_t length = (spec.samples.size() + spec.runs - 1) / spec.runs;
    for (size_t first = 0; first < spec.samples.size(); first += length) {
        const size_t end = std::min(first + length, spec.samples.size());
        boxes += film_run(spec, first, end, static_cast<uint32_t>(data - base));
        for (size_t i = first; i < end; ++i) data += spec.samples[i].bytes.size();
    }
    return box("traf", boxes);
}

static std::string movie_fragment(const std::vector<TrafSpec>& tracks, uint64_t offset,
                                  uint64_t data) {
    std::string boxes = full_box("mfhd", u32(1));
    uint64_t implicit_data = 0;
    for (const TrafSpec& track : tracks) {
        boxes += film_traf(track, offset, data, implicit_data);
        data += sample_data(track.samples).size();
        implicit_data = data;
    }
    return box("moof", boxes);
}

std::string film_fragment(const std::vector<TrafSpec>& tracks, uint64_t offset) {
    std::string data;
    for (const TrafSpec& track : tracks) data += sample_data(track.samples);
    const uint64_t length = movie_fragment(tracks, offset, 0).size();
    return movie_fragment(tracks, offset, length + 8) + box("mdat", data);
}

std::string fragmented_head(TrackSpec track) {
    const uint32_t duration = track.duration * 1000 / track.time_scale;
    const std::string length = duration != 0 ? full_box("mehd", u32(duration)) : "";
    track.samples.clear();
    track.duration = 0;
    const std::string defaults = full_box("trex", words({track.id, 1, 0, 0, 0}));
    return kFileType + film_header(film_track(track, 0) + box("mvex", length + defaults));
}

std::string fragmented_film(const TrackSpec& track) {
    std::string film = fragmented_head(track);
    std::string entries = words({track.id, 0, track.samples.size()});
    uint32_t time = 0;
    for (const FilmSample& sample : track.samples) {
        entries += words({time, film.size()}) + "\1\1\1";
        film += film_fragment({{.track = track.id, .samples = {sample}}}, film.size());
        time += sample.duration;
    }
    return film + box("mfra", full_box("tfra", entries));
}
