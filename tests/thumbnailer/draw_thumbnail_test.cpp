// SPDX-License-Identifier: BSD-2-Clause
// What comes of movies that are cut off or damaged, without a process in between.
#include "thumbnailer/draw_thumbnail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "runtime/accounted_memory.h"
#include "tests/support/memory_source.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"
#include "thumbnailer/decode_frame.h"
#include "thumbnailer/inflate.h"
#include "thumbnailer/picture_check.h"

// Draws and checks that there is either a whole picture or a sentence, and that nothing stays.
static Verdict draw(const std::string& movie, const Options& options, size_t* length = nullptr) {
    MemorySource source(movie);
    Outcome outcome;
    const std::string picture = written_by(
        [&](FILE* file) { outcome = draw_thumbnail(&source, inflate_zlib, options, {}, file); });
    const auto* const bytes = reinterpret_cast<const uint8_t*>(picture.data());
    const bool is_whole = is_whole_picture({bytes, picture.size()}, options.format);
    EXPECT_EQ(is_whole, outcome.verdict == Verdict::kDone);
    EXPECT_EQ(outcome.sentence.empty(), outcome.verdict == Verdict::kDone);
    EXPECT_EQ(g_memUsed, 0);
    if (length) *length = picture.size();
    return outcome.verdict;
}

TEST(DrawThumbnail, TriesOtherKeyFramesWhenTheChosenOneIsDamaged) {
    const std::string movie = read_file(std::string(KEYSTILL_MEDIA) + "sample.mp4");
    Options options;
    options.frames = 1;
    MemorySource source(movie);
    Movie reader(&source);
    const auto frames = reader.key_frames_from(reader.duration_us() / 10, 1);
    ASSERT_EQ(frames.size(), 1u);
    std::string damaged = movie;
    std::fill_n(damaged.begin() + static_cast<ptrdiff_t>(frames[0].offset), frames[0].size, '\xff');
    EXPECT_EQ(draw(damaged, options), Verdict::kDone);
    for (const MovieKeyFrame& frame : reader.key_frames_from(0, 1000)) {
        std::fill_n(damaged.begin() + static_cast<ptrdiff_t>(frame.offset), frame.size, '\xff');
    }
    EXPECT_EQ(draw(damaged, options), Verdict::kNoPicture);
}

// Of every step-th line of the planes of a clip's first key frame.
static uint32_t sum_of_lines(const char* clip, uint32_t first, uint32_t step) {
    MemorySource source(read_file(std::string(KEYSTILL_MEDIA) + clip));
    Movie movie(&source);
    DecodedFrame frame;
    const MovieKeyFrame key_frame = movie.key_frames_from(0, 1)[0];
    if (decode_frame(&movie, key_frame, &frame).verdict != Verdict::kDone) return 0;
    const DecodedPicture& picture = frame.picture;
    uint32_t sum = 0;
    for (uint32_t line = first; line < picture.height * 2; line += step) {
        const bool is_luma = line < picture.height;
        const uint32_t size = is_luma ? picture.stride : picture.stride / 2;
        const uint32_t at =
            is_luma ? line * size : picture.u_offset + (line - picture.height) * size;
        for (uint32_t x = 0; x < size; ++x) sum = sum * 31 + frame.planes.get()[at + x];
    }
    return sum;
}

// Of what ffmpeg decodes: the bottom field, and planes of which chroma was made half as large.
TEST(DecodeFrame, DecodesWhatOnlyThisProgramDoes) {
    EXPECT_EQ(sum_of_lines("fields.mp4", 1, 2), 0xa116f694U);
    EXPECT_EQ(sum_of_lines("yuv444.mp4", 0, 1), 0xe6e3dd1dU);
}

TEST(DrawThumbnail, ReplacesABlankPictureUnlessItWasAskedFor) {
    const std::string movie = read_file(std::string(KEYSTILL_MEDIA) + "sample.mp4");
    const auto is_black = [&](StartTime start, int frames) {  // as the first key frame is
        Options options;
        options.start = start;
        options.frames = frames;
        options.percentile = 0;
        size_t length = 0;
        EXPECT_EQ(draw(movie, options, &length), Verdict::kDone);
        return length < 1000;
    };
    EXPECT_FALSE(is_black({0, -1}, 5));
    EXPECT_TRUE(is_black({0, -1}, 1));
    EXPECT_TRUE(is_black({0, 0}, 5));
}
