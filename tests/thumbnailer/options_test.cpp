// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Read {
    OptionsOutcome outcome;
    Options options;
    std::string complaint;
};

Read read(std::vector<std::string> words, bool has_files = true) {
    if (has_files) words.insert(words.end(), {"-i", "-a b.mp4", "-o", "-c d.jpg"});
    words.insert(words.begin(), "keystill-thumbnailer");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    Read result;
    result.outcome = read_options(static_cast<int>(words.size()), argv.data(), &result.options,
                                  &result.complaint);
    return result;
}

TEST(Options, StandsInForOtherThumbnailers) {
    // As desktops and media servers call one, with values behind their letters or apart.
    const Read r = read({"-iin.mkv", "-oout.png", "-s0", "-t", "25%", "-q", "10", "-c", "jpeg",
                         "-a", "-f", "-m", "-w"},
                        false);
    ASSERT_EQ(r.outcome, OptionsOutcome::kRun) << r.complaint;
    EXPECT_EQ(r.options.input, "in.mkv");
    EXPECT_EQ(r.options.output, "out.png");
    EXPECT_EQ(r.options.size.width, 0);
    EXPECT_EQ(r.options.start.percent, 25);
    EXPECT_EQ(r.options.quality, 100);
    EXPECT_EQ(r.options.format, PictureFormat::kJpeg);
    EXPECT_TRUE(r.options.size.ignores_shape);
}

TEST(Options, UsualValues) {
    const Read r = read({});
    ASSERT_EQ(r.outcome, OptionsOutcome::kRun);
    EXPECT_EQ(r.options.input, "-a b.mp4");
    EXPECT_EQ(r.options.output, "-c d.jpg");
    EXPECT_EQ(r.options.size.width, 128);
    EXPECT_EQ(r.options.size.height, 128);
    EXPECT_EQ(r.options.frames, 5);
    EXPECT_EQ(r.options.start.percent, 10);
    EXPECT_EQ(r.options.start.time_us, -1);
    EXPECT_EQ(r.options.percentile, 70);
    EXPECT_EQ(r.options.format, PictureFormat::kJpeg);
    EXPECT_EQ(r.options.fallback, "none");
}

TEST(Options, SizesAndTimes) {
    const Read box = read({"--size=320x240"});
    EXPECT_EQ(box.options.size.width, 320);
    EXPECT_EQ(box.options.size.height, 240);
    const Read wide = read({"-s", "320x0"});
    EXPECT_EQ(wide.options.size.width, 320);
    EXPECT_EQ(wide.options.size.height, 0);
    const struct {
        const char* text;
        int percent;
        int64_t time_us;
    } kTimes[] = {
        {"0", 0, -1},
        {"100%", 100, -1},
        {"00:00:00", 10, 0},
        {"1:30", 10, 90000000},
        {"01:01:01.5", 10, 3661500000},
        {"0:00.0000019", 10, 1},
        {"99:00:00", 10, 356400000000},
    };
    for (const auto& c : kTimes) {
        const Read r = read({"-t", c.text});
        EXPECT_EQ(r.outcome, OptionsOutcome::kRun) << c.text;
        EXPECT_EQ(r.options.start.percent, c.percent) << c.text;
        EXPECT_EQ(r.options.start.time_us, c.time_us) << c.text;
    }
}

TEST(Options, FormatByEndingUnlessStated) {
    const std::pair<const char*, PictureFormat> kCases[] = {
        {"a.png", PictureFormat::kPng},  {"a.JPEG", PictureFormat::kJpeg},
        {"a.jpg", PictureFormat::kJpeg}, {"a.b/c", PictureFormat::kPng},
        {"a.gif", PictureFormat::kPng},  {"-", PictureFormat::kPng},
    };
    for (const auto& [output, format] : kCases) {
        EXPECT_EQ(read({"-i", "a", "-o", output}, false).options.format, format) << output;
        EXPECT_EQ(read({"-i", "a", "-cjpeg", "-o", output}, false).options.format,
                  PictureFormat::kJpeg);
    }
}

TEST(Options, WrongUsage) {
    const std::vector<std::string> kWrong[] = {
        {"-s", "-1"},       {"-s", "1x"},         {"-s", "65501"},
        {"-s", "1x2x3"},    {"-t", "101%"},       {"-t", "a"},
        {"-t", "1:2:3:4"},  {"-t", "1:-2"},       {"-t", ":"},
        {"-t", "0:0.x"},    {"-q", "11"},         {"-c", "rgb"},
        {"--frames", "0"},  {"--frames", "1001"}, {"--percentile", "101"},
        {"--fallback", ""}, {"--none"},           {"-z"},
        {"stray"},          {"-s", ""},           {"-t", ""},
        {"--time"},
    };
    for (const auto& words : kWrong) {
        const Read r = read(words);
        EXPECT_EQ(r.outcome, OptionsOutcome::kWrong) << words.back();
        EXPECT_NE(r.complaint, "");
    }
    EXPECT_EQ(read({}, false).outcome, OptionsOutcome::kWrong);
    EXPECT_EQ(read({"-i", "a"}, false).outcome, OptionsOutcome::kWrong);
    EXPECT_EQ(read({"-i"}, false).outcome, OptionsOutcome::kWrong);
    EXPECT_EQ(read({"-h"}, false).outcome, OptionsOutcome::kHelp);
    EXPECT_EQ(read({"-v"}, false).outcome, OptionsOutcome::kVersion);
}

}  // namespace
