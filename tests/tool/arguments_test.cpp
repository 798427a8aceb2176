// SPDX-License-Identifier: BSD-2-Clause
#include "tool/arguments.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "tests/support/temp_folder.h"
#include "tool/file_query.h"
#include "tool/media_types.h"

using Argv = std::array<const char*, 10>;
static const Argv kGood = {"keystill", "in.mp4", "out.jpg", "320", "240",
                           "85",       "5",      "10",      "70",  "ignored"};

TEST(Arguments, NeedEightOfThem) {
    Arguments args;
    EXPECT_EQ(arguments_read(9, kGood.data(), &args), 0);
    EXPECT_EQ(arguments_read(10, kGood.data(), &args), 0);
    for (int argc = 0; argc < 9; ++argc) EXPECT_EQ(arguments_read(argc, kGood.data(), &args), 1);
    for (int missing : {1, 2}) {
        Argv argv = kGood;
        argv[missing] = nullptr;
        EXPECT_EQ(arguments_read(9, argv.data(), &args), 1);
    }
}

TEST(Arguments, AreReadAsNumbersOf32Bits) {
    static const struct {
        const char* text;
        int32_t want;
    } kCases[] = {
        {"5", 5},
        {" \t+7x", 7},
        {"-3", -3},
        {"", 0},
        {"x9", 0},
        {"0x10", 0},
        {"2147483647", INT32_MAX},
        {"2147483648", INT32_MAX},
        {"4294967297", INT32_MAX},
        {"-2147483649", INT32_MIN},
        {"-99999999999999999999999", INT32_MIN},  // beyond 64 bits too
    };
    for (const auto& c : kCases) {
        Argv argv = kGood;
        argv[6] = c.text;
        Arguments args;
        ASSERT_EQ(arguments_read(9, argv.data(), &args), 0);
        EXPECT_EQ(args.key_frame_count, c.want) << c.text;
    }
}

TEST(Arguments, AreHeldToTheirRanges) {
    static const struct {
        int position;
        const char* text;
        bool passes;
    } kCases[] = {
        {3, "0", true}, {3, "161", false}, {3, "-2", false},   {3, "2147483646", true},
        {4, "0", true}, {4, "1", false},   {4, "-240", false}, {3, "99999999999", false},
        {5, "0", true}, {5, "100", true},  {5, "101", false},  {5, "-1", false},
        {6, "1", true}, {6, "0", false},   {6, "-1", false},   {6, "99999999999", true},
        {7, "0", true}, {7, "100", true},  {7, "101", false},  {7, "-5", false},
        {8, "0", true}, {8, "100", true},  {8, "101", false},  {8, "-1", false},
    };
    for (const auto& c : kCases) {
        Argv argv = kGood;
        argv[c.position] = c.text;
        Arguments args;
        ASSERT_EQ(arguments_read(9, argv.data(), &args), 0);
        EXPECT_EQ(arguments_are_in_range(args), c.passes) << c.position << " " << c.text;
    }
}

TEST(FileQuery, FindsTheExtension) {
    static const struct {
        const char* path;
        const char* want;
    } kCases[] = {
        {"clip.mp4", "mp4"},    {"/a/b.c/clip.MOV", "MOV"},
        {"clip", nullptr},      {"/a.d/clip", nullptr},
        {".mp4", "mp4"},        {"x.mp4.", "mp4."},
        {"x.mp4.a", "mp4.a"},   {"clip.mp4.bak", "bak"},
        {"a.mp4.b", "mp4.b"},   {"long.mpeg4.a", "a"},
        {"x.y.", ""},           {"a.b.c.", "b.c."},
        {"clip.mp4/", nullptr}, {"/d.r/x.a", "r/x.a"},
        {"clip.", ""},          {"film.q", "q"},
        {"", nullptr},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.path);
        EXPECT_STREQ(file_query_extension(c.path), c.want);
    }
}

TEST(MediaTypes, AreFoundInOrderAndFallBack) {
    EXPECT_STREQ(media_type_of("3GP"), "video/3gpp");
    EXPECT_STREQ(media_type_of("Mpeg4"), "video/mp4");
    EXPECT_STREQ(media_type_of("avi"), "application/octet-stream");
    EXPECT_STREQ(media_type_of(""), "application/octet-stream");
    EXPECT_EQ(media_type_of(nullptr), nullptr);
    static const char* const kMore[] = {"video/x-msvideo", "avi", "mp4", "", "other/type", "", ""};
    g_additionalMediaTypes = kMore;
    EXPECT_STREQ(media_type_of("AVI"), "video/x-msvideo");
    EXPECT_STREQ(media_type_of("mp4"), "video/mp4");
    EXPECT_STREQ(media_type_of("doc"), "other/type");
    g_additionalMediaTypes = nullptr;
}

TEST(Arguments, NameAnExistingVideo) {
    const TempFolder folder;
    static const struct {
        const char* name;
        bool passes;
    } kCases[] = {{"a.MP4", true},  {"a.Mov", true},    {"a.qt", true},  {"a.m1v", true},
                  {"a.m4v", true},  {"a.mpeg4", true},  {"a.3gp", true}, {"a.ISMV", true},
                  {"a.avi", false}, {"a.mp4.a", false}, {"mp4", false},  {"a.m2ts", false},
                  {".mp4", true},   {"a.mp4.", false}};
    for (const auto& c : kCases) {
        const std::string path = folder.path(c.name);
        Arguments args = {};
        args.input_path = path.c_str();
        EXPECT_FALSE(arguments_name_a_video(args)) << c.name;
        write_file(path, "");
        EXPECT_EQ(arguments_name_a_video(args), c.passes) << c.name;
    }
}
