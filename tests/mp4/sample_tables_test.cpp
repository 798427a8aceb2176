// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/sample_tables.h"

#include "mp4/work_limit.h"
#include "tests/mp4/walked_file.h"
#include "tests/support/film_builder.h"

static std::string list_box(const char* type, const std::vector<uint64_t>& fields, size_t width) {
    return full_box(type, u32(fields.size() / width) + words(fields));
}

TEST(SampleTables, FindsTheSampleThatReachesATime) {
    // Entries are (count, delta); sample -1 is none.
    // clang-format off
    static const struct { std::vector<uint64_t> entries; uint64_t target; int64_t sample; } kCases[] = {
        {{5, 10}, 0, 0}, {{5, 10}, 10, 0}, {{5, 10}, 11, 1}, {{5, 10}, 50, 4}, {{5, 10}, 51, -1},
        {{2, 10, 3, 7}, 21, 2}, {{2, 10, 3, 7}, 35, 4}, {{2, 0, 3, 7}, 0, 0}, {{2, 0, 3, 7}, 1, 2},
        {{0, 9, 0x80000000, 9, 2, 5}, 6, 1},  // counts that are not positive are passed over
        {{0x7fffffff, ~0u, 0x7fffffff, ~0u, 0x7fffffff, ~0u}, UINT64_MAX, 0x100000000},
        {{}, 0, -1},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        const WalkedFile walked(movie_of(list_box("stts", c.entries, 2)));
        uint64_t sample = 99;
        EXPECT_EQ(mp4_find_sample_at(walked.file.get(), &walked.state, c.target, &sample),
                  c.sample >= 0);
        EXPECT_EQ(sample, c.sample >= 0 ? static_cast<uint64_t>(c.sample) : 99);
    }
}

TEST(SampleTables, FindsTheChunkOfASample) {
    // Entries are (first chunk, samples per chunk, description); chunk -1 is none.
    // clang-format off
    static const struct {
        std::vector<uint64_t> entries; uint32_t sample; int64_t chunk; uint32_t first_sample;
    } kCases[] = {
        {{1, 4, 1, 3, 2, 1}, 0, 1, 0}, {{1, 4, 1, 3, 2, 1}, 7, 2, 4}, {{1, 4, 1, 3, 2, 1}, 8, 3, 8},
        {{1, 4, 1, 3, 2, 1}, 9, 3, 8}, {{1, 4, 1, 3, 2, 1}, 10, 4, 10}, {{1, 4, 1, 3, 0, 1}, 8, -1, 0},
        {{1, 4, 1, 3, 0, 1}, 7, 2, 4}, {{5, 3, 1}, 4, 6, 3}, {{1, 0, 1, 3, 2, 1}, 1, 3, 0},
        {{1, 4, 1, 1, 2, 1, 3, 1, 1}, 3, 2, 2}, {{3, 4, 1, 1, 2, 1}, 0, -1, 0}, {{}, 0, -1, 0},
        {{1, ~0u, 1}, ~1u, 1, 0}, {{1, ~0u, 1, ~0u, 1, 1}, ~0u, 2, ~0u},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(&c - kCases);
        const WalkedFile walked(movie_of(list_box("stsc", c.entries, 3)));
        for (const uint32_t before : {0u, c.sample, 9u}) {  // from wherever the last look-up ended
            uint64_t chunk = 0;
            uint32_t first = 0;
            mp4_find_chunk(walked.file.get(), &walked.state, before, &chunk, &first);
            ASSERT_EQ(mp4_find_chunk(walked.file.get(), &walked.state, c.sample, &chunk, &first),
                      c.chunk >= 0);
            if (c.chunk < 0) continue;
            EXPECT_EQ(chunk, static_cast<uint64_t>(c.chunk));
            EXPECT_EQ(first, c.first_sample);
        }
    }
}

TEST(SampleTables, LocatesSamplesInAnyOrder) {
    TrackSpec track;
    track.samples_per_chunk = 1500;
    std::vector<uint64_t> offsets = {0};
    for (uint32_t i = 0; i < 5000; ++i) {  // several windows
        track.samples.push_back({std::string(i % 7, 'x')});
        offsets.push_back(i == 0 ? 100 : offsets[i] + (i - 1) % 7);
    }
    const WalkedFile walked(film_header(film_track(track, 100)));
    mp4_grant_look_ups();
    for (uint32_t i = 0, number = 0; i < 2000; ++i, number = (number + 1709) % 5001) {
        const SamplePlace got = mp4_locate_sample(walked.file.get(), &walked.state, number);
        ASSERT_EQ(got.offset, offsets[number]) << number;
        ASSERT_EQ(got.size, number == 0 ? 0 : (number - 1) % 7) << number;
    }
    EXPECT_EQ(mp4_locate_sample(walked.file.get(), &walked.state, 5001).size, 0u)
        << "in a chunk, but no sample";
}

TEST(SampleTables, TablesAreBoundedByTheFile) {
    const std::string two = full_box("stsz", words({0, 2, 5, 6}));
    const auto check = [&](const char* name, const std::string& boxes, uint32_t count,
                           uint32_t first, uint32_t second) {
        SCOPED_TRACE(name);
        const WalkedFile walked(movie_of(boxes));
        EXPECT_EQ(walked.state.sample_sizes.count, count);
        EXPECT_EQ(file_table_word(walked.file.get(), &walked.state.sample_sizes, 0), first);
        EXPECT_EQ(file_table_word(walked.file.get(), &walked.state.sample_sizes, 1), second);
    };
    check("cut", full_box("stsz", words({0, 1000000, 5})) + "\1\2\3", 1000000, 5, 0);
    check("one size for all", full_box("stsz", words({77, 3, 5, 6})), 3, 0, 0);
    check("past the box", full_box("stsz", words({0, 2, 5})) + u32(6) + "abcd", 2, 5, 6);
    check("too large to hold", two + full_box("stsz", words({0, 0x20000000, 7, 8})), 2, 5, 6);
    check("64-bit box", two + large_box("stsz", zeros(12)), 2, 5, 6);
}

TEST(SampleTables, WalkGoesOnInsideATableThatIsRefused) {
    const std::string refused = full_box("stsz", words({0, 0x20000000}) + track_header(9));
    EXPECT_EQ(WalkedFile(movie_of(refused)).context.current_track_id, 9u);
}
