// SPDX-License-Identifier: BSD-2-Clause
// The report, on files of every kind that gives no thumbnail and some that do. The last sentence
// has to be right, and has to agree with what keystill itself does.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"
#include "tool/explain_report.h"
#include "tool/run_keystill.h"

static MovieSpec movie(const SpsSpec& sps = {}, const PpsSpec& pps = {}, int slice_type = 7) {
    SliceSpec slice;
    slice.slice_type = static_cast<uint32_t>(slice_type);
    const std::string sample = with_length(pcm_slice_nal(slice, {std::string(384, '\x80')}), 4);
    MovieSpec spec;
    spec.entry = avc_entry(sps_nal(sps), pps_nal(pps));
    spec.samples = {sample, sample, sample + with_length("\6pad", 4), sample, sample};
    spec.sync = {1, 3, 5};
    return spec;
}

static SpsSpec sps_of(void (*change)(SpsSpec*)) {
    SpsSpec sps;
    sps.profile_idc = 100;
    change(&sps);
    return sps;
}

static std::string with_renamed(std::string file, const std::string& from, const std::string& to) {
    size_t renamed = 0;
    for (size_t at; (at = file.find(from)) != std::string::npos; ++renamed) {
        file.replace(at, from.size(), to);
    }
    EXPECT_GT(renamed, 0u) << from;
    return file;
}

static std::string with_entry(const std::string& entry) {
    MovieSpec spec = movie();
    spec.entry = entry;
    return movie_file(spec);
}

using Arguments8 = std::vector<std::string>;

class Explain : public testing::Test {
 protected:
    // The status and the report.
    int run(std::vector<std::string> args) {
        std::vector<const char*> argv = {"keystill-explain"};
        for (const std::string& arg : args) argv.push_back(arg.c_str());
        char* text = nullptr;
        size_t length = 0;
        FILE* const out = open_memstream(&text, &length);
        const int status = run_explain(static_cast<int>(argv.size()), argv.data(), out);
        fclose(out);
        report_.assign(text, length);
        free(text);
        EXPECT_EQ(g_memUsed, 0);
        return status;
    }
    // What keystill makes of the same arguments.
    int run_tool(std::vector<std::string> args) {
        std::vector<const char*> argv = {"keystill"};
        for (const std::string& arg : args) argv.push_back(arg.c_str());
        return run_keystill(static_cast<int>(argv.size()), argv.data());
    }
    void expect_reason(const std::string& want, const Arguments8& args) {
        EXPECT_EQ(run(args), 1);
        EXPECT_NE(report_.find("\nThere will be no thumbnail. " + want), std::string::npos)
            << report_;
        EXPECT_EQ(run_tool(args), 1);
    }
    Arguments8 arguments(const std::string& input) {
        return {input, folder_.path("o.jpg"), "16", "16", "85", "5", "10", "70"};
    }
    TempFolder folder_;
    std::string report_;
};

TEST_F(Explain, EachKindOfFileHasItsReason) {
    const std::string good = movie_file(movie());
    const std::string fragmented = fragmented_file(movie());
    const SpsSpec interlaced = sps_of([](SpsSpec* sps) { sps->frame_mbs_only_flag = 0; });
    const SpsSpec deep = sps_of([](SpsSpec* sps) { sps->bit_depth_luma_minus8 = 2; });
    const SpsSpec wide = sps_of([](SpsSpec* sps) { sps->chroma_format_idc = 2; });
    const SpsSpec lossless = sps_of([](SpsSpec* sps) { sps->lossless = 1; });
    PpsSpec groups;
    groups.num_slice_groups_minus1 = 1;
    MovieSpec empty = movie();
    empty.samples[4].clear();
    empty.sync = {5};
    MovieSpec unlisted = movie();
    unlisted.sync.clear();
    MovieSpec garbage = movie();
    for (std::string& sample : garbage.samples) sample.assign(40, '\x65');
    // clang-format off
    const struct { const char* name; std::string file, reason; } kCases[] = {
        {"empty", "", "The file is too short"},
        {"text", std::string(64, 'x'), "It is no MP4, QuickTime or 3GPP file"},
        {"no index", box("ftyp", "isom" + zeros(4)), "The file has no index (moov)."},
        {"cut in front of the index", good.substr(0, 1000), "The file is cut off: it ends at 1000, its mdat box should go on to 2002"},
        {"audio only", with_renamed(good, "vide", "soun"), "The file has no video track."},
        {"HEVC", with_renamed(good, "avc1", "hvc1"), "The video's codec is HEVC (hvc1)"},
        {"strange", with_renamed(good, "avc1", "\1\2ab"), "The video's codec is not known here (..ab)"},
        {"protected", with_renamed(good, "avc1", "encv"), "The video is protected (encv)"},
        {"protected otherwise", with_renamed(good, "avc1", "drmi"), "The video is protected (drmi)"},
        {"no sync table", with_renamed(good, "stss", "free"), "The video has no table of key frames (stss)"},
        {"empty sync table", movie_file(unlisted), "The video's table of key frames (stss) is empty."},
        {"64-bit offsets", with_renamed(good, "stco", "co64"), "The video has 64-bit chunk offsets only"},
        {"no times", with_renamed(good, "stts", "free"), "The video's sample tables are missing or empty: stts."},
        {"no parameter sets", with_renamed(good, "avcC", "free"), "The H.264 parameter sets are missing"},
        {"no MPEG-4 header", with_entry(mpeg4_entry("none")), "The MPEG-4 decoder configuration (esds) is missing"},
        {"no H.263 header", with_entry(box("s263", zeros(90))), "The H.263 decoder configuration (d263) is missing"},
        {"compact sizes", with_renamed(good, "stsz", "stz2"), "The video has compact sample sizes"},
        {"fragments without a table", with_renamed(fragmented, "mfra", "free"), "The movie is fragmented and has no random access table"},
        {"fragments of another track", with_renamed(fragmented, full_box("tfra", u32(1)).substr(4), full_box("tfra", u32(2)).substr(4)),
         "The movie's random access table (tfra) names no key frame"},
        {"empty key frame", movie_file(empty), "All key frames from there on are empty"},
        {"interlaced", movie_file(movie(interlaced)), "The H.264 stream is interlaced"},
        {"10-bit", movie_file(movie(deep)), "The H.264 stream has 10-bit samples"},
        {"4:2:2", movie_file(movie(wide)), "The H.264 stream is 4:2:2"},
        {"lossless", movie_file(movie(lossless)), "The H.264 stream is lossless"},
        {"slice groups", movie_file(movie({}, groups)), "The H.264 stream has slice groups"},
        {"predicted", movie_file(movie({}, {}, 5)), "The key frame is no intra picture"},
        {"garbage", movie_file(garbage), "The key frame's coded data is damaged"},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string path = folder_.path("x.mp4");
        write_file(path, c.file);
        expect_reason(c.reason, arguments(path));
    }
}

TEST_F(Explain, KeyFramesBehindTheEndAreATruncation) {
    const MovieSpec spec = movie();
    // The index in front of the media data, which starts behind it.
    const std::string moov = movie_file(spec).substr(movie_file(spec).find("moov") - 4);
    std::string file = box("ftyp", "isom" + zeros(4)) + moov;
    const uint32_t first = static_cast<uint32_t>(file.size()) + 8;
    const std::string table = sample_table(spec, first);
    file.replace(file.find("stbl") - 4, table.size(), table);
    std::string data;
    for (const std::string& sample : spec.samples) data += sample;
    file += box("mdat", data);
    const std::string path = folder_.path("x.mp4");
    write_file(path, file);
    EXPECT_EQ(run(arguments(path)), 0) << report_;
    write_file(path, file.substr(0, first + 100));
    Arguments8 args = arguments(path);
    args[6] = "0";
    expect_reason("The file is cut off: it ends at " + std::to_string(first + 100) +
                      ", and the key frame to decode would go on to ",
                  args);
}

TEST_F(Explain, EachWrongArgumentHasItsReason) {
    const std::string good = folder_.path("x.mp4"), text = folder_.path("x.txt");
    write_file(good, movie_file(movie()));
    write_file(text, movie_file(movie()));
    // clang-format off
    static const struct { size_t argument; std::string value, reason; } kCases[] = {
        {2, "161", "The width 161 is odd: thumbnails have even sides.\nAsk for 160 instead.\n"},
        {3, "-2", "The height -2 is negative."},
        {4, "101", "The JPEG quality is 101"}, {4, "-1", "The JPEG quality is -1"},
        {5, "0", "The number of key frames to look at is 0."},
        {6, "-5", "The clip offset is -5"}, {7, "101", "The size percentile is 101"},
        {0, text, "The file's name does not end in"},
        {0, folder_.path("none.mp4"), "The file cannot be looked at: No such file"},
        {1, folder_.path("none/o.jpg"), "The output cannot be created: No such file"},
        {1, folder_.path(""), "The output is a folder."},
        {5, "2000000000", "There is not memory enough."},
        {3, "70000", "The picture would come out as 70000x70000"},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.reason);
        Arguments8 args = arguments(good);
        if (c.value == "70000") args[2] = c.value;
        args[c.argument] = c.value;
        expect_reason(c.reason, args);
    }
}

TEST_F(Explain, GoodFilesShowTheirKeyFramesAndThePick) {
    const std::string path = folder_.path("x.mp4");
    write_file(path, movie_file(movie()));
    EXPECT_EQ(run({path}), 0);
    for (const char* want :
         {"codec       H.264 (avc1), Baseline profile (66), level 3.0, 8-bit 4:2:0, progressive\n",
          "size        16x16\n", "duration    0:00:05.000\n", "key frames  3\n",
          "         0     0:00:00.000         394  collected\n",
          "         1     0:00:02.000         402  collected, picked\n",
          "         2     0:00:04.000         394  collected\n", "mp4_parse_stsd : avc1\n",
          "pixels, from key frame 1.\n"}) {
        EXPECT_NE(report_.find(want), std::string::npos) << want << report_;
    }
    EXPECT_EQ(run({path, "", "0", "0", "85", "1", "61", "0"}), 0);
    EXPECT_NE(report_.find("16x16 pixels, from key frame 2.\n"), std::string::npos) << report_;

    write_file(path, fragmented_file(movie(), 50));
    EXPECT_EQ(run({path, "", "16", "16", "85", "5", "0", "100"}), 0);
    EXPECT_NE(report_.find("         2     0:00:02.000         402  collected, picked\n"),
              std::string::npos)
        << report_;
}

TEST_F(Explain, LongTablesAreCutUnlessAllIsAskedFor) {
    MovieSpec spec = movie();
    while (spec.samples.size() < 30) spec.samples.push_back(spec.samples[0]);
    spec.sync.clear();
    for (uint32_t i = 1; i <= 30; ++i) spec.sync.push_back(i);
    const std::string path = folder_.path("x.mp4");
    write_file(path, movie_file(spec));
    EXPECT_EQ(run({path}), 0);
    EXPECT_EQ(report_.find("        20     0:00:20.000"), std::string::npos);
    EXPECT_NE(report_.find("    ...\n        29     0:00:29.000"), std::string::npos) << report_;
    EXPECT_EQ(run({"--all", path}), 0);
    EXPECT_NE(report_.find("        20     0:00:20.000"), std::string::npos);
}

TEST_F(Explain, NoFileBreaksIt) {
    const std::string good = movie_file(movie()), path = folder_.path("x.mp4");
    for (size_t length = 0; length < good.size(); length += 7) {
        write_file(path, good.substr(0, length));
        const int status = run({path});
        EXPECT_EQ(status, run_tool(arguments(path))) << length << report_;
    }
    srand(6);
    const size_t index = good.find("moov");
    for (int i = 0; i < 400; ++i) {
        std::string damaged = good;
        const size_t at = index + static_cast<size_t>(rand()) % (good.size() - index);
        damaged[at] = static_cast<char>(rand());
        write_file(path, damaged);
        const int status = run(arguments(path));
        EXPECT_EQ(status, run_tool(arguments(path))) << at << report_;
    }
}

TEST_F(Explain, OptionsAndUsage) {
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_EQ(report_, "keystill-explain " KEYSTILL_VERSION "\n");
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_EQ(report_.rfind("usage: keystill-explain ", 0), 0u);
    testing::internal::CaptureStderr();
    EXPECT_EQ(run({}), 2);
    EXPECT_EQ(report_, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("usage: ", 0), 0u);
}
