// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/fragments.h"

#include "tests/mp4/walked_file.h"

static const std::string kHeld = full_box("trun", u32(0));  // leaves its content held

static std::string fragment(const std::string& boxes) { return box("moof", box("traf", boxes)); }

// A movie of track 1 at 0, the fragment behind it, and a random access table that leads there.
static std::string with_fragment(const std::string& moof, uint32_t default_size = 0) {
    const std::string movie = movie_of("") + full_box("trex", words({1, 1, 0, default_size, 0}));
    const uint32_t offset = static_cast<uint32_t>(movie.size());
    return movie + moof + kHeld +
           box("mfra", full_box("tfra", words({1, 0, 1, 5, offset}) + "\1\1\1"));
}

TEST(Fragments, MovieExtendsHeaderReplacesTheDuration) {
    const std::string movie = full_box("mvhd", words({0, 0, 100, 0}));
    EXPECT_EQ(WalkedFile(movie + full_box("mehd", u32(250))).state.duration_s, 3);
    EXPECT_EQ(WalkedFile(full_box("mehd", u32(250))).state.media_duration, 0u) << "no time scale";
    const WalkedFile wide(movie + full_box("mehd", u64(uint64_t{1} << 40), 0x01000000));
    EXPECT_EQ(wide.state.media_duration, uint64_t{1} << 40);
}

TEST(Fragments, TableEntriesHaveNumbersOfEveryWidth) {
    // clang-format off
    static const struct {
        const char* name; uint32_t flags, size_codes; std::string entry; uint64_t offset; uint32_t run;
    } kCases[] = {
        {"bytes", 0, 0, words({7, 8}) + "\1\2\3", 8, 2},
        {"64-bit times", 1, 0, u64(7) + u64(uint64_t{8} << 32) + "\1\2\3", uint64_t{8} << 32, 2},
        {"16 bits", 0, 0x15, words({7, 8}) + u16(1) + u16(2) + u16(3), 8, 2},
        {"32 bits", 0, 0x3f, words({7, 8, 1, 2, 3}), 8, 2},
        {"24 bits take 32", 0, 0x08, words({7, 8}) + "\1" + u32(0x00800000) + "\3", 8, 1u << 24},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string table = words({1, c.size_codes, 3}) + c.entry + words({9});
        const WalkedFile walked(movie_of("") + kHeld + full_box("tfra", table, c.flags));
        const FragmentState& fragments = walked.state.fragments;
        EXPECT_EQ(walked.state.sync_sample_count, 3u);
        ASSERT_GE(fragments.stored_entries, 1u) << "the rest is behind the end of the file";
        EXPECT_EQ(fragments.entries[0].time, 7u);
        EXPECT_EQ(fragments.entries[0].offset, c.offset);
        EXPECT_EQ(fragments.first_run_number, c.run);
    }
}

TEST(Fragments, TableIsReadOnlyWhileContentIsHeld) {
    const std::string table = full_box("tfra", words({1, 0, 1, 7, 8}) + "\1\1\1");
    const std::string other = full_box("tfra", words({2, 0, 1, 7, 8}) + "\1\1\1");
    // clang-format off
    const struct { const char* name; std::string boxes; uint32_t count; } kCases[] = {
        {"held", kHeld + table, 1},
        {"released", table, 0},
        {"another track's keeps it held", kHeld + other + table, 1},
        {"too many entries", kHeld + full_box("tfra", words({1, 0, 0x4000000})), 0},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const WalkedFile walked(movie_of("") + c.boxes);
        EXPECT_EQ(walked.state.fragments.has_table, c.count != 0);
        EXPECT_EQ(walked.state.sync_sample_count, c.count);
    }
}

TEST(Fragments, KeyFrameIsPlacedByItsFragment) {
    const std::string mine = full_box("tfhd", u32(1)), other = full_box("tfhd", u32(2));
    const std::string run = full_box("trun", words({1, 100, 44}), 0x201);
    const std::string run_of_defaults = full_box("trun", words({1, 100}), 0x1);
    // clang-format off
    const struct { const char* name; std::string moof; uint32_t offset, size; } kCases[] = {
        {"first sample's size", fragment(mine + run), 100, 44},
        {"all fields", fragment(mine + full_box("trun", words({1, 100, 1, 2, 44}), 0x305)), 100, 44},
        {"no offset", fragment(mine + full_box("trun", words({1, 44}), 0x200)), 0, 44},
        {"default size", fragment(mine + run_of_defaults), 100, 9},
        {"size at the track number", fragment(full_box("tfhd", words({1, 55}), 0x10) + run_of_defaults),
         100, 1},
        {"size behind two fields", fragment(full_box("tfhd", words({1, 4, 55}), 0x1a) + run_of_defaults),
         100, 55},
        {"later runs do not count", fragment(mine + run + full_box("trun", words({1, 9}), 0x1)), 100, 44},
        {"audio in front", fragment(other + full_box("trun", words({1, 5, 6}), 0x201) + mine + run),
         100, 44},
        {"nothing of the track", fragment(other), 0, 0},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const WalkedFile walked(with_fragment(c.moof, 9));
        const uint32_t start = static_cast<uint32_t>(walked.state.fragments.entries[0].offset);
        for (int i = 0; i < 2; ++i) {  // asked for the size, then for the bytes
            SamplePlace place;
            ASSERT_EQ(mp4_locate_fragment_sample(walked.file.get(), 0, &place), 0);
            EXPECT_EQ(place.size, c.size);
            EXPECT_EQ(place.offset, start + c.offset);
        }
    }
}

TEST(Fragments, OddTargetsEndTheLookUpOrTheCollection) {
    const std::string run = full_box("trun", words({1, 100, 44}), 0x201);
    // clang-format off
    const struct { const char* name; std::string moof; int result; uint32_t offset; } kCases[] = {
        // Its upper half becomes the fragment's offset.
        {"base data offset", fragment(full_box("tfhd", u32(1) + u64(0x500000777), 1) + run), 0, 105},
        {"64-bit size", large_box("moof", box("traf")), 1, 0},
        // The walk, which holds no content there, takes what is in these for a box of 20 bytes.
        {"an empty table", box("moof", full_box("tfra", words({1, 0, 0, 0}), 20)), 0, 0},
        {"a table too large", box("moof", full_box("tfra", words({1, 0, ~0u, 0}), 20)), 1, 0},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const WalkedFile walked(with_fragment(c.moof));
        ASSERT_TRUE(walked.state.fragments.has_table);
        SamplePlace place;
        EXPECT_EQ(mp4_locate_fragment_sample(walked.file.get(), 0, &place), c.result);
        EXPECT_EQ(place.offset, c.offset);
        EXPECT_EQ(walked.state.fragments.has_table, c.result == 0);
    }
}
