// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/options.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "tests/support/program_run.h"

// What the words ask for: size, start, quality, format, frames@percentile, fallback, what is
// unusual; or a word and the complaint.
static std::string read(const std::string& words) {
    std::vector<std::string> parts;
    std::istringstream in(words);
    for (std::string word; in >> word;) parts.push_back(word == "EMPTY" ? "" : word);
    CommandLine line("keystill-thumbnailer", parts);
    Options o;
    std::string complaint;
    using enum OptionsOutcome;
    const OptionsOutcome outcome = read_options(line.argc(), line.argv(), &o, &complaint);
    if (outcome == kHelp) return "help";
    if (outcome == kVersion) return "version";
    if (outcome == kWrong) return complaint.empty() ? "wrong without a word" : "wrong";
    std::ostringstream out;
    out << o.size.width << 'x' << o.size.height << ' ' << o.start.percent << '%';
    if (o.start.time_us >= 0) out << ' ' << o.start.time_us << "us";
    out << ' ' << o.quality << (o.format == PictureFormat::kJpeg ? " jpeg " : " png ");
    out << o.frames << '@' << o.percentile << ' ' << o.fallback;
    if (o.size.ignores_shape) out << " square";
    if (o.size.may_enlarge) out << " enlarge";
    if (o.keeps_orientation_as_stored) out << " stored";
    return out.str() + " " + o.input + " " + o.output;
}

TEST(Options, AreReadAsWords) {
    const std::string files = " -i -a.mp4 -o b.png";
    // clang-format off
    static const std::pair<const char*, const char*> kCases[] = {
        // As desktops and media servers call other thumbnailers.
        {"-iin.mkv -oout.png -s0 -t 25% -q 10 -c jpeg -a -f -m -w",
         "0x0 25% 100 jpeg 5@70 none square in.mkv out.png"},
        {"-i -a -o -c", "128x128 10% 80 png 5@70 none -a -c"},
        {"--input a --output b.jpg --size=320x240 --time 0 --quality 0 --format PNG --frames 1000"
         " --percentile 100 --fallback auto --enlarge --no-rotate",
         "320x240 0% 0 png 1000@100 auto enlarge stored a b.jpg"},
        // The format by the ending.
        {"-i a -o a.png", "128x128 10% 80 png 5@70 none a a.png"},
        {"-i a -o a.JPEG", "128x128 10% 80 jpeg 5@70 none a a.JPEG"},
        {"-i a -o a.jpg", "128x128 10% 80 jpeg 5@70 none a a.jpg"},
        {"-i a -o a.b/c", "128x128 10% 80 png 5@70 none a a.b/c"},
        {"-i a -o a.gif", "128x128 10% 80 png 5@70 none a a.gif"},
        {"-cjpeg -i a -o a.png", "128x128 10% 80 jpeg 5@70 none a a.png"},
        {"-i a -o -", "128x128 10% 80 png 5@70 none a -"},
        {"", "wrong"}, {"-i a", "wrong"}, {"-i", "wrong"}, {"-h", "help"}, {"-v", "version"},
    };
    // clang-format on
    for (const auto& [words, want] : kCases) EXPECT_EQ(read(words), want) << words;
    // clang-format off
    static const char* const kWrong[] = {
        "-s -1", "-s 1x", "-s 65501", "-s 1x2x3", "-s EMPTY", "-t 101%", "-t a", "-t 1:2:3:4",
        "-t 1:-2", "-t :", "-t 0:0.x", "-t EMPTY", "-q 11", "-c rgb", "--frames 0", "--frames 1001",
        "--percentile 101", "--fallback EMPTY", "--none", "-z", "stray", "--time"};
    // clang-format on
    for (const char* words : kWrong) EXPECT_EQ(read(files + " " + words), "wrong") << words;
}

TEST(Options, SizesAndTimes) {
    // clang-format off
    static const std::pair<const char*, const char*> kCases[] = {
        {"-s 320x0", "320x0 10%"}, {"-s 65500", "65500x65500 10%"}, {"-t 0", "128x128 0%"},
        {"-t 100%", "128x128 100%"}, {"-t 00:00:00", "128x128 10% 0us"},
        {"-t 1:30", "128x128 10% 90000000us"}, {"-t 01:01:01.5", "128x128 10% 3661500000us"},
        {"-t 0:00.0000019", "128x128 10% 1us"}, {"-t 99:00:00", "128x128 10% 356400000000us"},
    };
    // clang-format on
    for (const auto& [words, want] : kCases) {
        EXPECT_EQ(read(std::string(words) + " -i a -o b"),
                  want + std::string(" 80 png 5@70 none a b"));
    }
}
