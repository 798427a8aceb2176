// SPDX-License-Identifier: BSD-2-Clause
#include "tool/key_frames.h"

#include <gtest/gtest.h>

#include "runtime/owned.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"

using Samples = std::vector<std::string>;

// Collects and compares the samples. Returns the result.
static int collect(const std::string& file, int32_t percent, int32_t count, const Samples& want) {
    SCOPED_TRACE(percent);
    const TempFolder folder;
    write_file(folder.path("x.mp4"), file);
    std::vector<KeyFrame> records(static_cast<size_t>(count));
    KeyFrameRequest request = {percent, count, records.data(), kCodecNone, -1};
    const int result = GetKeyFrameMpeg4(folder.path("x.mp4").c_str(), &request);
    Samples samples;
    for (const KeyFrame& record : records) {
        const Owned<uint8_t> config(record.config), sample(record.sample);
        if (!sample) continue;
        samples.emplace_back(sample.get(), sample.get() + record.bytes_read);
        const std::string sets(config.get(), config.get() + record.config_length);
        EXPECT_EQ(sets, u16(3) + "SPS" + u16(3) + "PPS");
    }
    EXPECT_EQ(samples, want);
    EXPECT_EQ(g_memUsed, 0);
    if (result != 0) return result;
    EXPECT_EQ(request.key_frame_count, static_cast<int32_t>(want.size()));
    EXPECT_EQ(request.duration_s, 10);
    return 0;
}

// Ten seconds of ten samples; the key frames are b, e, h and j, and g is one without bytes.
static MovieSpec ten_seconds() {
    MovieSpec spec;
    spec.entry = avc_entry("SPS", "PPS");
    spec.samples = {"a", "bb", "c", "d", "eee", "f", "", "h", "i", "jjjj"};
    spec.sync = {2, 5, 7, 8, 10};
    return spec;
}

TEST(KeyFrames, CollectionStartsAtThePartOfTheClip) {
    const std::string file = movie_file(ten_seconds());
    collect(file, 0, 9, {"bb", "eee", "h", "jjjj"});
    collect(file, 20, 1, {"bb"});
    collect(file, 21, 1, {"eee"});
    collect(file, 51, 2, {"h", "jjjj"});  // an empty sample does not count
    collect(file, 100, 5, {"jjjj"});
    collect(fragmented_file(ten_seconds(), 100), 45, 3, {"f", "h", "i"});  // 4.5 s; 6 s is empty
}

TEST(KeyFrames, SampleMayBeLongerThanTheFileButNotThanABlock) {
    const std::string file = movie_file(ten_seconds());
    const auto with_last_size = [&](uint32_t size) {
        return std::string(file).replace(file.find("stsz") + 16 + 9 * 4, 4, u32(size));
    };
    const std::string long_file = with_last_size(0x7ffffff0 - 16);
    EXPECT_EQ(collect(long_file, 100, 1, {long_file.substr(long_file.find("jjjj"))}), 0);
    EXPECT_EQ(collect(with_last_size(0x80000000u), 100, 1, {}), -1);
}
