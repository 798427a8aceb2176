// SPDX-License-Identifier: BSD-2-Clause
// Builds movies: tracks in any order, tables of any kind, fragments with or without indexes.
#pragma once

#include <string>
#include <vector>

#include "tests/support/box_builder.h"

// H.264 samples of one NAL unit after a length prefix; no two numbers give the same bytes.
std::string idr_sample(uint32_t number, uint32_t length = 40, uint32_t prefix_size = 4);
std::string predicted_sample(uint32_t number, uint32_t length = 20, uint32_t prefix_size = 4);

std::string plain_avc_entry();  // one set of each kind, prefixes of four bytes

struct FilmSample {
    std::string bytes;
    bool is_sync = true;
    uint32_t duration = 10;
    int32_t composition = 0;
    uint32_t description = 1;
};
// `count` samples of which every `distance`-th is an IDR picture, the first one included.
std::vector<FilmSample> film_samples(uint32_t count, uint32_t distance);

struct TrackSpec {
    uint32_t id = 1;
    uint32_t flags = 7;  // enabled, in movie, in preview
    std::string handler = "vide";
    std::string media_boxes = {};  // in front of the tables
    std::vector<std::string> entries = {plain_avc_entry()};
    std::vector<FilmSample> samples = {};
    uint32_t time_scale = 10;
    uint32_t duration = 0;  // of the media header
    std::vector<uint64_t> matrix = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
    uint32_t width = 64, height = 48;
    std::string edits = {};          // content of "elst" after version and flags
    std::string references = {};     // content of "tref"
    uint32_t samples_per_chunk = 2;  // less where the description changes
    uint32_t size_bits = 32;  // 4, 8 and 16 are "stz2"; 0: all samples have the size of the first
    bool has_large_offsets = false;  // "co64"
    bool is_wide = false;            // headers of version 1, edits too
    bool has_sync_table = true;
    std::vector<uint64_t> sync_numbers = {};  // for that table in place of the samples' own
};
// "trak". Samples lie one after another from the offset on.
std::string film_track(const TrackSpec& track, uint64_t first_offset);
// "moov" after "mvhd" of time scale 1000.
std::string film_header(const std::string& boxes, uint32_t duration = 0,
                        const std::vector<uint64_t>& matrix = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0,
                                                               0x40000000});
std::string sample_data(const std::vector<FilmSample>& samples);
// "ftyp", "mdat", "moov".
std::string plain_film(const TrackSpec& track);

// One "traf" of a fragment and how it says what it says.
struct TrafSpec {
    uint32_t track = 1;
    std::vector<FilmSample> samples;
    int64_t time = -1;  // "tfdt", none if negative
    enum class Base { kFragment, kStated, kImplicit } base = Base::kFragment;
    bool states_each = true;  // durations, sizes, flags and compositions for each sample
    uint32_t runs = 1;
    bool has_data_offset = true;
};
// "moof" and "mdat" for a place in the file.
std::string film_fragment(const std::vector<TrafSpec>& tracks, uint64_t offset);
// File type, a movie box with "mvex" and no samples. Only "mehd" has the track's duration, if any.
std::string fragmented_head(TrackSpec track);
// That, a fragment for each sample, which counts as a key frame, and the random access table.
std::string fragmented_film(const TrackSpec& track);
