// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>

#include "tests/support/temp_folder.h"
#include "tool/file_query.h"

using Argv = std::array<const char*, 9>;
static const Argv kGood = {"keystill", "in.mp4", "out.jpg", "320", "240", "85", "5", "10", "70"};

// Good arguments but one.
static Arguments with(int position, const char* text) {
    Argv argv = kGood;
    argv[position] = text;
    Arguments args;
    EXPECT_EQ(arguments_read(9, argv.data(), &args), 0);
    return args;
}

TEST(Arguments, AreReadAsNumbersOf32Bits) {
    static const std::pair<const char*, int32_t> kCases[] = {{" \t+7x", 7},
                                                             {"-3", -3},
                                                             {"x9", 0},
                                                             {"0x10", 0},
                                                             {"2147483648", INT32_MAX},
                                                             {"-2147483649", INT32_MIN},
                                                             {"-99999999999999999999", INT32_MIN}};
    for (const auto& [text, want] : kCases) EXPECT_EQ(with(6, text).key_frame_count, want) << text;
}

TEST(Arguments, AreHeldToTheirRanges) {
    static const std::pair<int, const char*> kInside[] = {
        {3, "0"}, {3, "2147483646"}, {4, "0"},   {5, "0"}, {5, "100"},
        {6, "1"}, {7, "0"},          {7, "100"}, {8, "0"}, {8, "100"}};
    static const std::pair<int, const char*> kOutside[] = {
        {3, "161"}, {3, "-2"},  {4, "1"},  {4, "-240"}, {5, "101"}, {5, "-1"},
        {6, "0"},   {7, "101"}, {7, "-5"}, {8, "101"},  {8, "-1"}};
    for (const auto& [i, text] : kInside) EXPECT_TRUE(arguments_are_in_range(with(i, text))) << i;
    for (const auto& [i, text] : kOutside) EXPECT_FALSE(arguments_are_in_range(with(i, text))) << i;
}

TEST(FileQuery, FindsTheExtension) {
    static const char* const kCases[][2] = {{"/a/b.c/clip.MOV", "MOV"},
                                            {"/a.d/clip", nullptr},
                                            {"x.mp4.", "mp4."},
                                            {"x.mp4.a", "mp4.a"},
                                            {"long.mpeg4.a", "a"},
                                            {"x.y.", ""},
                                            {"a.b.c.", "b.c."},
                                            {"/d.r/x.a", "r/x.a"},
                                            {"clip.", ""},
                                            {"", nullptr}};
    for (const auto& [path, want] : kCases) EXPECT_STREQ(file_query_extension(path), want) << path;
}

TEST(Arguments, NameAnExistingVideo) {
    const TempFolder folder;
    static const struct {
        const char* name;
        bool passes;
    } kCases[] = {{"a.MP4", true},  {"a.Mov", true},    {"a.qt", true},  {"a.m1v", true},
                  {"a.m4v", true},  {"a.mpeg4", true},  {"a.3gp", true}, {"a.ISMV", true},
                  {"a.avi", false}, {"a.mp4.a", false}, {"mp4", false},  {".mp4", true}};
    for (const auto& c : kCases) {
        const std::string path = folder.path(c.name);
        EXPECT_FALSE(arguments_name_a_video(with(1, path.c_str()))) << c.name;
        write_file(path, "");
        EXPECT_EQ(arguments_name_a_video(with(1, path.c_str())), c.passes) << c.name;
    }
}
