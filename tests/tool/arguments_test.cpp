// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_folder.h"
#include "tool/file_query.h"

// Good arguments but one.
static Arguments with(int position, const char* text) {
    const char* argv[] = {"keystill", "in.mp4", "out.jpg", "320", "240", "85", "5", "10", "70"};
    argv[position] = text;
    Arguments args;
    EXPECT_EQ(arguments_read(9, argv, &args), 0);
    return args;
}

TEST(Arguments, AreReadAsNumbersOf32Bits) {
    // clang-format off
    static const std::pair<const char*, int32_t> kCases[] = {
        {" \t+7x", 7}, {"-3", -3}, {"x9", 0}, {"0x10", 0}, {"2147483648", INT32_MAX},
        {"-2147483649", INT32_MIN}, {"-99999999999999999999", INT32_MIN}};
    // clang-format on
    for (const auto& [text, want] : kCases) EXPECT_EQ(with(6, text).key_frame_count, want) << text;
}

TEST(Arguments, AreHeldToTheirRanges) {
    using enum Refusal;
    // Inside, the next thing is that there is no in.mp4.
    // clang-format off
    static const struct { int position; const char* text; Refusal want; } kCases[] = {
        {3, "0", kNoInput}, {3, "2147483646", kNoInput}, {3, "161", kOddSide}, {3, "-2", kNegativeSide},
        {4, "0", kNoInput}, {4, "1", kOddSide}, {4, "-240", kNegativeSide},
        {5, "0", kNoInput}, {5, "100", kNoInput}, {5, "101", kQuality}, {5, "-1", kQuality},
        {6, "1", kNoInput}, {6, "0", kKeyFrameCount},
        {7, "0", kNoInput}, {7, "100", kNoInput}, {7, "101", kClipOffset}, {7, "-5", kClipOffset},
        {8, "0", kNoInput}, {8, "100", kNoInput}, {8, "101", kSizePercentile}, {8, "-1", kSizePercentile},
    };
    // clang-format on
    for (const auto& [position, text, want] : kCases) {
        EXPECT_EQ(arguments_refusal(with(position, text)), want) << position << ' ' << text;
    }
}

TEST(FileQuery, FindsTheExtension) {
    // clang-format off
    static const char* const kCases[][2] = {
        {"/a/b.c/clip.MOV", "MOV"}, {"/a.d/clip", nullptr}, {"x.mp4.", "mp4."},
        {"x.mp4.a", "mp4.a"}, {"long.mpeg4.a", "a"}, {"x.y.", ""}, {"a.b.c.", "b.c."},
        {"/d.r/x.a", "r/x.a"}, {"clip.", ""}, {"", nullptr}};
    // clang-format on
    for (const auto& [path, want] : kCases) EXPECT_STREQ(file_query_extension(path), want) << path;
}

TEST(Arguments, NameAnExistingVideo) {
    const TempFolder folder;
    // clang-format off
    static const std::pair<const char*, bool> kCases[] = {
        {"a.MP4", true}, {"a.Mov", true}, {"a.qt", true}, {"a.m1v", true}, {"a.m4v", true},
        {"a.mpeg4", true}, {"a.3gp", true}, {"a.ISMV", true}, {".mp4", true},
        {"a.avi", false}, {"a.mp4.a", false}, {"mp4", false}};
    // clang-format on
    for (const auto& [name, passes] : kCases) {
        const std::string path = folder.path(name);
        EXPECT_EQ(arguments_refusal(with(1, path.c_str())), Refusal::kNoInput) << name;
        write_file(path, "");
        EXPECT_EQ(arguments_refusal(with(1, path.c_str())),
                  passes ? Refusal::kNone : Refusal::kInputName)
            << name;
    }
}
