// SPDX-License-Identifier: BSD-2-Clause
#include "tool/key_frames.h"

#include <gtest/gtest.h>

#include "runtime/owned.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"

// What a collection gave: the samples as text, in order.
struct Collected {
    int32_t result, count, duration;
    std::vector<std::string> samples;
    std::string config;
};

static Collected collect(const std::string& file, int32_t percent, int32_t count) {
    const TempFolder folder;
    write_file(folder.path("x.mp4"), file);
    std::vector<KeyFrame> records(static_cast<size_t>(count));
    KeyFrameRequest request = {percent, count, records.data(), kCodecNone, -1};
    const int result = GetKeyFrameMpeg4(folder.path("x.mp4").c_str(), &request);
    Collected out = {result, request.key_frame_count, request.duration_s, {}, ""};
    for (const KeyFrame& record : records) {
        const Owned<uint8_t> config(record.config), sample(record.sample);
        if (config) out.config.assign(config.get(), config.get() + record.config_length);
        if (sample) out.samples.emplace_back(sample.get(), sample.get() + record.bytes_read);
    }
    EXPECT_EQ(g_memUsed, 0);
    return out;
}

using Samples = std::vector<std::string>;

// Ten seconds of ten samples; the key frames are b, e, h and j, and g is one without bytes.
static MovieSpec ten_seconds() {
    MovieSpec spec;
    spec.entry = avc_entry("SPS", "PPS");
    spec.samples = {"a", "bb", "c", "d", "eee", "f", "", "h", "i", "jjjj"};
    spec.sync = {2, 5, 7, 8, 10};
    return spec;
}

TEST(KeyFrames, CollectionStartsAtThePartOfTheClip) {
    // clang-format off
    static const struct { int32_t percent, count; Samples samples; } kCases[] = {
        {0, 9, {"bb", "eee", "h", "jjjj"}}, {20, 1, {"bb"}}, {21, 1, {"eee"}},
        {51, 2, {"h", "jjjj"}},  // an empty sample does not count
        {100, 5, {"jjjj"}},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.percent);
        const Collected got = collect(movie_file(ten_seconds()), c.percent, c.count);
        EXPECT_EQ(got.samples, c.samples);
        EXPECT_EQ(got.count, static_cast<int32_t>(c.samples.size()));
        EXPECT_EQ(got.duration, 10);
        EXPECT_EQ(got.config, u16(3) + "SPS" + u16(3) + "PPS");
    }
}

TEST(KeyFrames, FragmentsAreChosenByTime) {
    const MovieSpec spec = ten_seconds();
    EXPECT_EQ(collect(fragmented_file(spec), 45, 3).samples, (Samples{"a", "bb", "c"}));
    const Collected got = collect(fragmented_file(spec, 100), 45, 3);  // 4.5 s; 6 s is empty
    EXPECT_EQ(got.samples, (Samples{"f", "h", "i"}));
    EXPECT_EQ(got.duration, 10);
}

// The movie with another size of its last sample.
static std::string with_last_size(uint32_t size) {
    const std::string file = movie_file(ten_seconds());
    return std::string(file).replace(file.find("stsz") + 16 + 9 * 4, 4, u32(size));
}

TEST(KeyFrames, SampleCutByTheEndOfTheFileIsKept) {
    const std::string file = with_last_size(0x7ffffff0 - 16);
    EXPECT_EQ(collect(file, 100, 1).samples, Samples{file.substr(file.find("jjjj"))});
    EXPECT_EQ(collect(with_last_size(0x80000000u), 100, 1).result, -1) << "beyond the allocator";
}
