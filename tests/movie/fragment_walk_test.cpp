// SPDX-License-Identifier: BSD-2-Clause
// Fragments by way of whole movies.
#include "movie/fragment_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/movie/opened_movie.h"

using Base = TrafSpec::Base;
using Times = std::vector<int64_t>;

static const TrackSpec kVideoTrack = {.id = 7};

// Samples of one second; the first one is a key frame.
static TrafSpec video(uint32_t number, uint32_t count, int64_t time) {
    TrafSpec traf = {.track = 7, .samples = film_samples(count, 100), .time = time};
    traf.samples[0].bytes = idr_sample(number);
    return traf;
}

static TrafSpec sound(uint32_t length) {
    return {.track = 3, .samples = {{std::string(length, 's')}, {std::string(length / 2, 't')}}};
}

// The tracks of a fragment by letters: v is the video, w more of it, s sound.
static std::vector<TrafSpec> tracks_of(const std::string& letters, uint32_t number) {
    const bool is_split = letters.find('w') != std::string::npos;
    std::vector<TrafSpec> tracks;
    for (const char letter : letters) {
        const uint32_t count = static_cast<uint32_t>(tracks.size());
        tracks.push_back(letter == 's'   ? sound(5 + 2 * count)
                         : letter == 'v' ? video(number, is_split ? 2 : 4, 40 * number)
                                         : video(number, 2, 40 * number + 20));
        if (letter == 'w') tracks.back().samples[0] = {predicted_sample(number), false};
    }
    return tracks;
}

TEST(FragmentWalk, TakesWhatFragmentsSayInEveryWay) {
    const auto state_base = [](TrafSpec* t) { t->base = Base::kStated; };
    // clang-format off
    const struct { const char *name, *tracks; std::function<void(TrafSpec*)> change; } kCases[] = {
        {"video alone", "v", [](TrafSpec*) {}},
        {"sound last", "vs", [](TrafSpec*) {}},
        {"sound first", "sv", [](TrafSpec*) {}},
        {"stated base", "sv", state_base},
        {"base after the sound", "ssv", [](TrafSpec* t) { t->base = Base::kImplicit; }},
        {"no offset after a stated base", "sv",
         [&](TrafSpec* t) { state_base(t), t->has_data_offset = false; }},
        {"several runs", "vs", [](TrafSpec* t) { t->runs = 3; }},
        {"runs one after another", "sv",
         [&](TrafSpec* t) { state_base(t), t->has_data_offset = false, t->runs = 4; }},
        {"defaults and flags of the first sample", "vs",
         [](TrafSpec* t) { t->states_each = t->track != 7; }},
        {"all claim to be sync samples", "vs",
         [](TrafSpec* t) { for (FilmSample& sample : t->samples) sample.is_sync = true; }},
        {"none claims to be one", "vs",
         [](TrafSpec* t) { for (FilmSample& sample : t->samples) sample.is_sync = false; }},
        {"two fragments of the track", "vw", [](TrafSpec*) {}},
        {"no times", "v", [](TrafSpec* t) { t->time = -1; }},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        std::string file = fragmented_head(kVideoTrack);
        for (uint32_t n = 0; n < 5; ++n) {
            std::vector<TrafSpec> tracks = tracks_of(c.tracks, n);
            std::for_each(tracks.begin(), tracks.end(), [&](TrafSpec& t) { c.change(&t); });
            file += film_fragment(tracks, file.size());
        }
        OpenedMovie movie(file);
        EXPECT_EQ(movie->duration_us(), 20000000);
        EXPECT_EQ(movie.times_ms(), (Times{0, 4000, 8000, 12000, 16000}));
        const std::vector<std::string> found = movie.samples();
        ASSERT_EQ(found.size(), 5u);
        for (uint32_t n = 0; n < 5; ++n) EXPECT_EQ(found[n], idr_sample(n));
        EXPECT_EQ(movie.times_ms(9000, 1), Times{12000});
        EXPECT_EQ(movie.times_ms(99000, 9), Times{16000});
    }
}

TEST(FragmentWalk, GoesOnWhereTheMovieBoxEnds) {
    TrackSpec track = kVideoTrack;
    track.samples = film_samples(20, 5);
    const std::string extends =
        box("mvex", full_box("trex", words({track.id, 1, 0, 0, 0x1010000})));
    const std::string type = box("ftyp", "isom" + zeros(4));
    const std::string data = type + box("mdat", sample_data(track.samples));
    std::string file = data + film_header(film_track(track, type.size() + 8) + extends, 2000);
    file += film_fragment({video(1, 4, -1)}, file.size());
    OpenedMovie movie(file);
    EXPECT_EQ(movie.times_ms(), (Times{0, 5000, 10000, 15000, 20000}));
    EXPECT_EQ(movie->duration_us(), 24000000);
}

TEST(FragmentWalk, CountsFromTheFirstFragment) {
    std::string file = fragmented_head(kVideoTrack);
    for (uint32_t n = 0; n < 3; ++n) {
        file += film_fragment({video(n, 4, 16000000000 + 40 * n)}, file.size());
    }
    OpenedMovie movie(file);
    EXPECT_EQ(movie->duration_us(), 12000000);
    EXPECT_EQ(movie.times_ms(1000), (Times{4000, 8000}));
}

static std::string segment_index(uint32_t time, const std::vector<uint64_t>& sizes,
                                 uint32_t duration) {
    std::string content = words({7, 10, time, 0}) + u16(0) + u16(sizes.size());
    for (const uint64_t size : sizes) content += words({size, duration, 0x90000000});
    return full_box("sidx", content);
}

// What looks like a fragment of the video from far away: one of another track, one whose header has
// another length, one after which no box of the top level stands, and one without a time.
static std::string decoys() {
    const auto moof = [](uint32_t track, const std::string& header, const std::string& time) {
        return box("moof", header + box("traf", full_box("tfhd", u32(track)) + time));
    };
    const std::string header = full_box("mfhd", u32(1)), time = full_box("tfdt", u32(1));
    return moof(9, header, time) + box("free") + moof(7, full_box("mfhd", ""), time) + box("free") +
           moof(7, header, time) + box("none") + moof(7, header, "") + box("free");
}

// A long film: fragments of four seconds and about 5,000 bytes.
struct LongFilm {
    std::string file = fragmented_head(kVideoTrack);
    std::vector<uint64_t> places;
};

// With an index in front of every so many fragments, or none.
static LongFilm long_film(uint32_t fragments, uint32_t indexed) {
    std::vector<std::string> bodies;
    for (uint32_t n = 0; n < fragments; ++n) {
        TrafSpec traf = video(n, 4, 40 * n);
        traf.samples[1].bytes += decoys() + std::string(5000 + n % 7, 'x');
        bodies.push_back(film_fragment({traf, sound(99)}, 0));
    }
    LongFilm film;
    for (uint32_t n = 0; n < fragments; ++n) {
        if (indexed != 0 && n % indexed == 0) {
            std::vector<uint64_t> sizes;
            for (uint32_t i = n; i < std::min(n + indexed, fragments); ++i) {
                sizes.push_back(bodies[i].size());
            }
            film.file += segment_index(40 * n, sizes, 40);
        }
        film.places.push_back(film.file.size());
        film.file += bodies[n];
    }
    return film;
}

static std::string random_access(const LongFilm& film, uint64_t shift) {
    std::string entries = words({7, 0x3f, film.places.size()});
    for (size_t n = 0; n < film.places.size(); ++n) {
        entries += words({40 * n, film.places[n] + shift}) + words({1, 1, 1});
    }
    const std::string table = full_box("tfra", entries);
    return box("mfra", table + full_box("mfro", u32(table.size() + 24)));
}

TEST(FragmentWalk, LooksUpLongFilmsWithFewReads) {
    constexpr uint32_t kFragments = 1000;
    const LongFilm plain = long_film(kFragments, 0);
    const auto check = [&](const char* name, const std::string& file, uint64_t most_reads) {
        SCOPED_TRACE(name);
        OpenedMovie movie(file);
        EXPECT_EQ(movie->duration_us(), int64_t{4} * kFragments * 1000000);
        EXPECT_EQ(movie.samples(3001000, 2), (std::vector{idr_sample(751), idr_sample(752)}));
        EXPECT_LE(movie.source.reads, most_reads);
        EXPECT_EQ(movie.samples(4000 * kFragments, 2), std::vector{idr_sample(kFragments - 1)});
        EXPECT_EQ(movie.samples(401000, 1), std::vector{idr_sample(101)});
    };
    check("without an index", plain.file, 300);
    check("random access table", plain.file + random_access(plain, 0), 60);
    check("wrong random access table", plain.file + random_access(plain, 9), 320);
    check("one segment index", long_film(kFragments, kFragments).file, 60);
    check("an index for ten", long_film(kFragments, 10).file, 320);
    check("an index for each", long_film(kFragments, 1).file, 300);
}

TEST(FragmentWalk, HostileFragmentsEndSoon) {
    const std::string head = fragmented_head(kVideoTrack);
    const auto moof = [](const std::string& traf) {
        return box("moof", full_box("mfhd", u32(1)) + box("traf", traf));
    };
    const std::string header = full_box("tfhd", u32(7), 0x20000);
    const std::string many_alike = full_box("trun", words({UINT32_MAX}), 0);
    const std::string sized = full_box("tfhd", words({7, 0, 1}), 0x20018);
    std::string runs, tracks;
    for (int i = 0; i < 5000; ++i) runs += many_alike;
    const std::string implicit = full_box("tfhd", words({7, 9, 1, 0x2000000}), 0x38);
    for (int i = 0; i < 2000; ++i) {
        tracks += box("traf", implicit + full_box("trun", words({3, 2, 2, 2}), 0x200));
    }
    const std::string back =
        full_box("sidx", words({7, 10, 0, 0}) + u16(0) + u16(1) + words({0, 0, 0}));
    const auto check = [&](const char* name, const std::string& fragments) {
        SCOPED_TRACE(name);
        // Zeros after it: a file that was never filled.
        OpenedMovie(head + fragments, uint64_t{1} << 40).expect_to_end_soon();
    };
    check("four billion samples alike", moof(sized + many_alike));
    check("and many runs", moof(sized + runs));
    check("without sizes", moof(header + runs));
    check("each after all before", box("moof", tracks));
    check("index of nothing", back + back + moof(header));
    check("index far away", full_box("sidx", words({7, 1, 0, UINT32_MAX, 0, 0, 0}), 1 << 24));
    check("empty fragment", box("moof") + box("moof", box("traf")));
    check("negative offset", moof(header + full_box("trun", words({1, 0x80000000, 9}), 0x201)));
    check("times at the end", moof(header + full_box("tfdt", u64(INT64_MAX), 1 << 24) +
                                   full_box("trun", words({2, 9, 9, 9, 9}), 0x300)));
}
