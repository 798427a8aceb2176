// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/fragments.h"

#include "mp4/work_limit.h"
#include "tests/mp4/walked_file.h"

static const std::string kHeld = full_box("trun", u32(0));  // leaves its content held

static std::string fragment(const std::string& boxes) { return box("moof", box("traf", boxes)); }

// A movie of track 1 at 0, the fragment after it, and a random access table that leads there.
static std::string with_fragment(const std::string& moof, uint32_t default_size = 0) {
    const std::string movie = movie_of("") + full_box("trex", words({1, 1, 0, default_size, 0}));
    const uint32_t offset = static_cast<uint32_t>(movie.size());
    return movie + moof + kHeld +
           box("mfra", full_box("tfra", words({1, 0, 1, 5, offset}) + "\1\1\1"));
}

static RandomAccessEntry entry_of(const WalkedFile& walked, uint32_t index) {
    return random_access_entry(walked.file.get(), &walked.state.fragments.table, index);
}

TEST(Fragments, TableEntriesHaveNumbersOfEveryWidth) {
    const auto check = [&](uint32_t flags, uint32_t size_codes, const std::string& entry,
                           uint32_t run, int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        const std::string table = words({1, size_codes, 3}) + entry + words({9});
        const WalkedFile walked(movie_of("") + kHeld + full_box("tfra", table, flags));
        ASSERT_EQ(walked.state.fragments.table.count, 3u);
        EXPECT_EQ(entry_of(walked, 0).offset, 8u);
        EXPECT_EQ(walked.state.fragments.table.first_run_number, run);
    };
    check(1, 0, u64(7) + u64(8) + "\1\2\3", 2);
    check(0, 0x15, words({7, 8}) + u16(1) + u16(2) + u16(3), 2);
    check(0, 0x3f, words({7, 8, 1, 2, 3}), 2);
    check(0, 0x08, words({7, 8}) + "\1" + u32(0x00800000) + "\3", 1u << 24);  // 24 bits take 32
}

// Reads a table field by field, as its boxes' own reader would.
static std::vector<RandomAccessEntry> read_in_order(BufferedFile* file, uint32_t count,
                                                    uint32_t size_codes, bool is_long) {
    const auto number = [file](uint32_t code) {
        if ((code & 3) == 0) return uint32_t{upnp_file_read_u8_b(file)};
        if ((code & 3) == 1) return uint32_t{upnp_file_read_u16_b(file)};
        return (code & 3) == 2 ? upnp_file_read_bits_b(file, 24) : upnp_file_read_u32_b(file);
    };
    std::vector<RandomAccessEntry> entries(count);
    for (RandomAccessEntry& entry : entries) {
        entry.time = is_long ? upnp_file_read_u64_b(file) : upnp_file_read_u32_b(file);
        entry.offset = is_long ? upnp_file_read_u64_b(file) : upnp_file_read_u32_b(file);
        for (const int shift : {4, 2, 0}) number(size_codes >> shift);
    }
    return entries;
}

TEST(Fragments, TableIsTheSameInAnyOrderAndAfterTheEndOfTheFile) {
    std::string bytes;
    for (int i = 0; i < 6000; ++i) bytes += static_cast<char>(i * 7 + i / 251 + 1);
    const TempFolder folder;
    write_file(folder.path("f"), bytes);
    for (uint32_t round = 0; round < 128; ++round) {
        const uint32_t size_codes = round & 63, count = 1 + round * 5 % 700;
        const bool is_long = round & 64;
        const OpenFile file(upnp_file_open_b(folder.path("f").c_str(), 16));
        const OpenFile twin(upnp_file_open_b(folder.path("f").c_str(), 16));
        for (BufferedFile* const f : {file.get(), twin.get()}) {
            for (uint32_t i = 0; i < round % 5; ++i) upnp_file_read_bits_b(f, 24);
        }
        mp4_grant_look_ups();
        RandomAccessWindow window;
        RandomAccessTable table = {};
        table.window = window;
        random_access_declare(file.get(), &table, count, size_codes, is_long);
        const auto want = read_in_order(twin.get(), count, size_codes, is_long);
        ASSERT_EQ(upnp_file_tell_b(file.get()), upnp_file_tell_b(twin.get())) << round;
        ASSERT_EQ(upnp_file_read_bits_b(file.get(), 24), upnp_file_read_bits_b(twin.get(), 24));
        for (uint32_t i = 0, at = 0; i < count; ++i, at = (at + 241) % count) {
            const RandomAccessEntry got = random_access_entry(file.get(), &table, at);
            ASSERT_EQ(got.time, want[at].time) << round << " " << at;
            ASSERT_EQ(got.offset, want[at].offset) << round << " " << at;
        }
    }
}

TEST(Fragments, TableIsReadOnlyWhileContentIsHeld) {
    const std::string table = full_box("tfra", words({1, 0, 1, 7, 8}) + "\1\1\1");
    const std::string other = full_box("tfra", words({2, 0, 1, 7, 8}) + "\1\1\1");
    EXPECT_FALSE(WalkedFile(movie_of("") + table).state.fragments.has_table);
    EXPECT_TRUE(WalkedFile(movie_of("") + kHeld + other + table).state.fragments.has_table);
    const std::string huge = full_box("tfra", words({1, 0, 0x4000000}));
    EXPECT_FALSE(WalkedFile(movie_of("") + kHeld + huge).state.fragments.has_table);
}

TEST(Fragments, KeyFrameIsPlacedByItsFragment) {
    const std::string mine = full_box("tfhd", u32(1)), other = full_box("tfhd", u32(2));
    const std::string run = full_box("trun", words({1, 100, 44}), 0x201);
    const std::string run_of_defaults = full_box("trun", words({1, 100}), 0x1);
    // clang-format off
    const struct { const char* name; std::string moof; uint32_t offset, size; } kCases[] = {
        {"all fields", fragment(mine + full_box("trun", words({1, 100, 1, 2, 44}), 0x305)), 100, 44},
        {"default size", fragment(mine + run_of_defaults), 100, 9},
        {"size at the track number", fragment(full_box("tfhd", words({1, 55}), 0x10) + run_of_defaults),
         100, 1},
        {"size after two fields", fragment(full_box("tfhd", words({1, 4, 55}), 0x1a) + run_of_defaults),
         100, 55},
        {"later runs do not count", fragment(mine + run + full_box("trun", words({1, 9}), 0x1)), 100, 44},
        {"audio in front", fragment(other + full_box("trun", words({1, 5, 6}), 0x201) + mine + run),
         100, 44},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const WalkedFile walked(with_fragment(c.moof, 9));
        SamplePlace place;
        ASSERT_EQ(mp4_locate_fragment_sample(walked.file.get(), &walked.state, 0, &place), 0);
        EXPECT_EQ(place.size, c.size);
        EXPECT_EQ(place.offset, entry_of(walked, 0).offset + c.offset);
    }
}

TEST(Fragments, LookUpReadsNothingThatTheWalkHasRead) {
    const std::string moof =
        fragment(full_box("tfhd", u32(1)) + full_box("trun", words({1, 100, 44}), 0x201));
    const WalkedFile walked(with_fragment(moof + box("free", std::string(9000, 'x'))));
    const RandomAccessEntry entry = entry_of(walked, 0);
    write_file(walked.folder.path("x.mp4"), std::string(20000, 'y'));
    SamplePlace place;
    ASSERT_EQ(mp4_locate_fragment_sample(walked.file.get(), &walked.state, 0, &place), 0);
    EXPECT_EQ(place.size, 44u);
    EXPECT_EQ(place.offset, entry.offset + 100);
}

TEST(Fragments, OddTargetsEndTheLookUpOrTheCollection) {
    const std::string base = full_box("tfhd", u32(1) + u64(0x500000777), 1);
    const std::string run = full_box("trun", words({1, 100, 44}), 0x201);
    const auto check = [&](const char* name, const std::string& moof, int result, uint32_t offset) {
        const WalkedFile walked(with_fragment(moof));
        SamplePlace place;
        EXPECT_EQ(mp4_locate_fragment_sample(walked.file.get(), &walked.state, 0, &place), result)
            << name;
        EXPECT_EQ(place.offset, offset) << name;
    };
    check("base data offset's upper half counts", fragment(base + run), 0, 105);
    check("64-bit size", large_box("moof", box("traf")), 1, 0);
    // The walk, which holds no content there, takes what is in it for a box of 20 bytes.
    check("a table too large", box("moof", full_box("tfra", words({1, 0, ~0u, 0}), 20)), 1, 0);
}

TEST(Fragments, FragmentWithoutMemoryIsReportedByTheLookUp) {
    EXPECT_NE(log_of(with_fragment(large_box("moof", box("traf"))))
                  .find("LOG_SCAN: getVideoThumbnail : No Memory to allocate \n"),
              std::string::npos);
}
