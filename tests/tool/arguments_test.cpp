// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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
    static const std::vector<const char*> kInside[] = {
        {"0", "2147483646"}, {"0"}, {"0", "100"}, {"1"}, {"0", "100"}, {"0", "100"}};
    static const std::vector<std::pair<const char*, Refusal>> kOutside[] = {
        {{"161", Refusal::kOddSide}, {"-2", Refusal::kNegativeSide}},
        {{"1", Refusal::kOddSide}, {"-240", Refusal::kNegativeSide}},
        {{"101", Refusal::kQuality}, {"-1", Refusal::kQuality}},
        {{"0", Refusal::kKeyFrameCount}},
        {{"101", Refusal::kClipOffset}, {"-5", Refusal::kClipOffset}},
        {{"101", Refusal::kSizePercentile}, {"-1", Refusal::kSizePercentile}}};
    for (int i = 0; i < 6; ++i) {
        SCOPED_TRACE(i + 3);
        // Inside, the next thing is that there is no in.mp4.
        for (auto text : kInside[i]) {
            EXPECT_EQ(arguments_refusal(with(i + 3, text)), Refusal::kNoInput);
        }
        for (auto [text, want] : kOutside[i]) {
            EXPECT_EQ(arguments_refusal(with(i + 3, text)), want);
        }
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
