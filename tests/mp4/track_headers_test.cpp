// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/track_headers.h"

#include "tests/mp4/walked_file.h"

static constexpr uint32_t kLong = 0x01000000;  // version 1

TEST(TrackHeaders, DurationComesFromTheHeaderInFrontOfTheHandler) {
    const auto check = [&](const std::string& header, uint64_t duration, int64_t seconds,
                           int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        const WalkedFile walked(box("moov", header + handler("vide")));
        EXPECT_EQ(walked.state.media_duration, duration);
        EXPECT_EQ(walked.state.duration_s, seconds);
    };
    check(full_box("mdhd", words({0, 0, 1000, 2500, 0})), 2500, 3);
    check(full_box("mdhd", words({0, 0, 0, 2500, 0})), 2500, 0);
    check(full_box("mdhd", words({0, 0, 0, 0, 1000, 0, 5000}), kLong), 0, 0);  // the upper half
    check(full_box("mvhd", words({0, 0, 0, 0, 10, 1, 4}), kLong), 0x100000004, 429496730);
    check(full_box("mvhd", words({0, 0, 0, 0, 10, ~0u, ~19u}), kLong), ~uint64_t{19}, -1);
}

TEST(TrackHeaders, LastHeaderOrHandlerNamesTheVideoTrack) {
    const std::string video = box("trak", track_header(1, 64, 48) + handler("vide"));
    const std::string audio = box("trak", track_header(2) + handler("soun"));
    EXPECT_EQ(WalkedFile(video + audio).context.video_track_id, 2u);
    EXPECT_EQ(WalkedFile(video + audio).context.info.width, 64u) << "an empty size says nothing";
    const std::string tall = zeros(16) + u32(5) + zeros(64) + words({9u << 16, 200u << 16});
    EXPECT_EQ(WalkedFile(full_box("tkhd", tall, kLong)).context.video_track_id, 5u);
    EXPECT_EQ(WalkedFile(full_box("tkhd", tall, kLong)).context.info.height, 200u);
    const std::string quick_time = handler("vide") + box("minf", handler("alis", "dhlr"));
    EXPECT_EQ(WalkedFile(box("mdia", quick_time)).context.handler_type[0], 'v');
    EXPECT_FALSE(WalkedFile(box("mdia", quick_time) + box("mdia")).context.has_handler_type);
}

TEST(TrackHeaders, LateHandlerParsesAgainWhatItMissed) {
    const std::string tables =
        full_box("stsd", u32(1) + h263_entry()) + full_box("stts", words({1, 9, 9})) +
        full_box("stsc", words({2, 1, 2, 3, 4, 5, 6})) + full_box("stsz", words({0, 2, 11, 12})) +
        full_box("stco", words({1, 99}));
    const std::string later = handler("vide") + full_box("stco", words({2, 7, 8}));
    const WalkedFile walked(movie_of(later, tables));
    EXPECT_EQ(walked.state.codec_kind, 2);
    EXPECT_EQ(file_table_word(walked.file.get(), &walked.state.sample_sizes, 1), 12u);
    // The last of three boxes is taken for times, whatever it is.
    EXPECT_EQ(file_table_word(walked.file.get(), &walked.state.time_to_sample, 3), 4u);
    EXPECT_FALSE(walked.state.sample_to_chunk.is_present);
    EXPECT_EQ(walked.state.chunk_offsets.count, 2u) << "the walk goes on after the handler";
}
