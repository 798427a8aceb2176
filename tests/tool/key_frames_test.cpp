// SPDX-License-Identifier: BSD-2-Clause
#include "tool/key_frames.h"

#include <gtest/gtest.h>

#include "runtime/owned.h"
#include "tests/support/film_builder.h"
#include "tests/support/temp_folder.h"

using Samples = std::vector<std::string>;

// What the collector says of a file.
struct Collected {
    explicit Collected(const std::string& file, int32_t percent = 0,
                       int32_t count = kMostKeyFrames) {
        write_file(folder.path("x.mp4"), file);
        request.clip_offset_percent = percent;
        request.key_frame_count = count;
        result = GetKeyFrameMpeg4(folder.path("x.mp4").c_str(), &request);
    }
    TempFolder folder;
    KeyFrameRequest request = {};
    int result;
};

// Collects and compares the samples. Returns the result.
static int collect(const std::string& file, int32_t percent, int32_t count, const Samples& want) {
    SCOPED_TRACE(percent);
    Collected collected(file, percent, count);
    KeyFrameRequest& request = collected.request;
    Samples samples;
    for (int32_t i = 0; collected.result == 0 && i < request.key_frame_count; ++i) {
        KeyFrame record;
        EXPECT_EQ(key_frame_read(&request, i, &record), Refusal::kNone);
        samples.emplace_back(record.sample, record.sample + record.bytes_read);
        const std::string sets(record.config, record.config + record.config_length);
        EXPECT_EQ(sets, u16(3) + "SPS" + u16(3) + "PPS");
        key_frame_release(&record);
    }
    EXPECT_EQ(samples, want);
    EXPECT_EQ(request.duration_s, collected.result == 0 ? 10 : 0);
    request = {};
    EXPECT_EQ(g_memUsed, 0);
    return collected.result;
}

// Ten seconds of ten samples; the key frames are b, e, h and j, and g is one without bytes.
static TrackSpec ten_seconds() {
    TrackSpec track;
    track.entries = {avc_entry("SPS", "PPS")};
    for (const char* bytes : {"a", "bb", "c", "d", "eee", "f", "", "h", "i", "jjjj"}) {
        track.samples.push_back({bytes, true, 1000});
    }
    track.sync_numbers = {2, 5, 7, 8, 10};
    track.time_scale = 1000;  // the movie's, too
    track.duration = 10000;
    return track;
}

TEST(KeyFrames, CollectionStartsAtThePartOfTheClip) {
    const std::string file = plain_film(ten_seconds());
    collect(file, 0, 9, {"bb", "eee", "h", "jjjj"});
    collect(file, 20, 1, {"bb"});
    collect(file, 21, 1, {"eee"});
    collect(file, 51, 2, {"h", "jjjj"});  // an empty sample does not count
    collect(file, 100, 5, {"jjjj"});
    collect(fragmented_film(ten_seconds()), 45, 3, {"f", "h", "i"});  // 4.5 s; 6 s is empty
    TrackSpec coarse = ten_seconds();
    for (FilmSample& sample : coarse.samples) sample.duration = 1;
    coarse.time_scale = 1, coarse.duration = 10;
    collect(plain_film(coarse), 25, 1, {"eee"});  // 2.5 s is rounded
}

TEST(KeyFrames, SyncSampleNumber0IsAfterEveryTimeAndEmpty) {
    TrackSpec track = ten_seconds();
    track.sync_numbers = {2, 0, 5, 8};
    collect(plain_film(track), 51, 2, {"eee", "h"});
}

TEST(KeyFrames, AreCollectedHoweverManyThereAre) {
    TrackSpec track;
    for (const uint32_t count : {20000u, 200000u}) {
        track.samples.assign(count, {"123456789"});
        EXPECT_EQ(Collected(plain_film(track)).request.key_frame_count,
                  static_cast<int32_t>(count));
    }
    track.samples = {{std::string(1 << 20, 'x')}};
    track.sync_numbers.assign(60, 1);  // all of them the same sample
    EXPECT_EQ(Collected(plain_film(track)).request.key_frame_count, 60);
}

// A fragmented movie that starts with a fragment, in which a table without entries lies.
static std::string with_table(uint32_t count, const std::string& entries, uint32_t version = 0) {
    const std::string first = box(
        "moof", box("traf", full_box("tfhd", u32(1)) + full_box("trun", words({1, 64, 5}), 0x201)));
    const std::string movie = fragmented_film(ten_seconds());
    const std::string moov =
        movie.substr(movie.find("moov") - 4, movie.find("moof") - movie.find("moov"));
    return first + box("mdat", "first") + moov + full_box("trun", u32(0)) +
           box("free", zeros(9000)) +
           box("mfra", full_box("tfra", words({1, 0, count}) + entries, version));
}

TEST(KeyFrames, RandomAccessEntriesThatAreNotInTheFileAreZeros) {
    const std::string stored = words({0, 0}) + "\1\1\1";
    collect(with_table(3, stored), 0, 9, {"first", "first", "first"});
    collect(with_table(3, stored), 99, 9, {"first"});
    const Collected all(with_table(60'000'000, stored));
    EXPECT_EQ(all.request.key_frame_count, 60'000'000);
    EXPECT_EQ(all.request.list.run_count, 1);
}

TEST(KeyFrames, NegativeFragmentOffsetLeadsToTheStartOfTheFile) {
    // The data is counted from the offset itself, and so starts a byte early.
    collect(with_table(1, u64(0) + u64(UINT64_MAX) + "\1\1\1", 1), 0, 9, {"tfirs"});
}

TEST(KeyFrames, FragmentSamplesNeedATableOfThem) {
    const std::string movie = fragmented_film(ten_seconds());
    const auto with_sync_count = [&](uint32_t count) {
        const std::string media = handler("vide") + full_box("stss", u32(count));
        return movie + box("moov", box("trak", box("mdia", media)));
    };
    EXPECT_EQ(Collected(with_sync_count(kUpnpMaxBlock / 8)).result, 0);
    EXPECT_EQ(Collected(with_sync_count(kUpnpMaxBlock / 8 + 1)).result, -1);
}

TEST(KeyFrames, SampleMayBeLongerThanTheFileButNotThanABlock) {
    const std::string file = plain_film(ten_seconds());
    const auto with_last_size = [&](uint32_t size) {
        return std::string(file).replace(file.find("stsz") + 16 + 9 * 4, 4, u32(size));
    };
    const std::string long_file = with_last_size(0x7ffffff0 - 16);
    EXPECT_EQ(collect(long_file, 100, 1, {long_file.substr(long_file.find("jjjj"))}), 0);
    EXPECT_LT(g_memPeak, 64 << 20);
    EXPECT_EQ(collect(with_last_size(0x80000000u), 100, 1, {}), -1);
}
