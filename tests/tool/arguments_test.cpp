// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

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
    static const struct {
        const char* text;
        int32_t want;
    } kCases[] = {
        {" \t+7x", 7},
        {"-3", -3},
        {"", 0},
        {"x9", 0},
        {"0x10", 0},
        {"2147483648", INT32_MAX},
        {"4294967297", INT32_MAX},
        {"-2147483649", INT32_MIN},
        {"-99999999999999999999", INT32_MIN},
    };
    for (const auto& c : kCases) EXPECT_EQ(with(6, c.text).key_frame_count, c.want) << c.text;
}

TEST(Arguments, AreHeldToTheirRanges) {
    static const struct {
        int position;
        const char* text;
        bool passes;
    } kCases[] = {
        {3, "0", true},    {3, "161", false}, {3, "-2", false},   {3, "2147483646", true},
        {4, "0", true},    {4, "1", false},   {4, "-240", false}, {3, "99999999999", false},
        {5, "0", true},    {5, "100", true},  {5, "101", false},  {5, "-1", false},
        {6, "1", true},    {6, "0", false},   {7, "0", true},     {7, "100", true},
        {7, "101", false}, {7, "-5", false},  {8, "0", true},     {8, "100", true},
        {8, "101", false}, {8, "-1", false},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(arguments_are_in_range(with(c.position, c.text)), c.passes)
            << c.position << " " << c.text;
    }
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
