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

// A movie whose samples are all that one.
static std::string with_sample(const std::string& sample, const std::string& entry) {
    MovieSpec spec = movie();
    spec.entry = entry;
    spec.samples.assign(3, sample);
    spec.sync = {1, 2, 3};
    return movie_file(spec);
}

static std::string avc_units(const std::vector<std::string>& units, const SpsSpec& sps = {},
                             const PpsSpec& pps = {}, int length_size = 4) {
    std::string sample;
    for (const std::string& unit : units) sample += with_length(unit, length_size);
    return with_sample(sample, avc_entry(sps_nal(sps), pps_nal(pps), length_size));
}

static std::string start_code(int value, const BitPacker& bits = {}) {
    return zeros(2) + '\1' + static_cast<char>(value) + bits.str();
}

// The object layer of a 16x16 picture, or its start with another shape.
static BitPacker layer(unsigned shape = 0) {
    BitPacker bits;
    bits.u(1 + 8 + 1, 2).u(4, 1).u(1, 0).u(2, shape);
    bits.u(1, 1).u(16, 30).u(1, 1).u(1, 0).u(1, 1).u(13, 16).u(1, 1).u(13, 16).u(1, 1);
    return bits.text("0 1 0 0 0 1 1 0 0").trailing();
}

static std::string mpeg4_file(const std::string& header, const BitPacker& vop) {
    const std::string config = start_code(0xb0, BitPacker().u(8, 1)) + header;
    return with_sample(start_code(0xb6, vop), mpeg4_entry(config));
}

// The last bits of PTYPE decide.
static std::string h263_file(unsigned modes) {
    const BitPacker picture = BitPacker().u(22, 0x20).u(8, 0).u(5, 16).u(3, 2).u(5, modes).u(32, 0);
    return with_sample(picture.str(), h263_entry());
}

// Puts a box between the movie's header and its track, which the media data stands in front of.
static std::string with_inserted(std::string file, const std::string& inserted) {
    const size_t moov = file.find("moov") - 4;
    const size_t track = file.find("trak") - 4;
    file.insert(track, inserted);
    return file.replace(moov, 4, u32(file.size() - moov));
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
        {"empty sync table", movie_file(unlisted), "The video's table of key frames (stss) is empty, or"},
        {"64-bit offsets", with_renamed(good, "stco", "co64"), "The video has 64-bit chunk offsets only"},
        {"no times", with_renamed(good, "stts", "free"), "The video's sample tables are missing, empty or cannot be read: stts."},
        {"no parameter sets", with_renamed(good, "avcC", "free"), "The H.264 decoder configuration (avcC) is missing."},
        {"no MPEG-4 header", with_entry(mpeg4_entry("none")), "The MPEG-4 decoder configuration (esds) does not start with"},
        {"no H.263 header", with_entry(box("s263", zeros(90))), "The H.263 decoder configuration (d263) is missing"},
        {"compact sizes", with_renamed(good, "stsz", "stz2"), "The video has compact sample sizes"},
        {"metadata with a terminator", with_inserted(good, box("udta", box("abcd", zeros(8)) + zeros(4))), "The metadata in front of the video track (udta at "},
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
        {"garbage", movie_file(garbage), "The lengths of the key frame's units do not fit into it"},
    };
    // clang-format on
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::string path = folder_.path("x.mp4");
        write_file(path, c.file);
        expect_reason(c.reason, arguments(path));
    }
}

TEST_F(Explain, EachFrameThatIsNotDecodedHasItsReason) {
    const SliceSpec intra;
    const std::string macroblock(384, '\x80'), slice = pcm_slice_nal(intra, {macroblock});
    const std::string unreferenced = nal_unit(0, 5, slice_header(intra).trailing());
    const std::string switching = pcm_slice_nal(
        [] {
            SliceSpec s;
            s.slice_type = 9;
            return s;
        }(),
        {macroblock});
    const SpsSpec wide = sps_of([](SpsSpec* sps) { sps->width_mbs = 2; });
    const SpsSpec huge = sps_of([](SpsSpec* sps) { sps->width_mbs = sps->height_mbs = 256; });
    const SpsSpec cropped = sps_of([](SpsSpec* sps) { sps->crop = {4, 4, 0, 0}; });
    PpsSpec other, redundant;
    other.id = 1;
    redundant.redundant_pic_cnt_present = 1;
    SliceSpec copy;
    copy.redundant = "010";
    const std::string other_sps = sps_nal([] {
        SpsSpec s;
        s.id = 1;
        return s;
    }());
    const std::string fragmented = fragmented_file(movie());
    // clang-format off
    const struct { const char* name; std::string file, reason; } kCases[] = {
        {"slice missing", avc_units({slice}, wide), "The key frame ends before its picture is complete"},
        {"slice sent twice", avc_units({slice, slice}, wide), "The slices of the key frame overlap"},
        {"no slice", avc_units({"\6pad"}), "The key frame holds no picture: it has no slice."},
        {"too small", with_sample("\1\2\3", avc_entry(sps_nal({}), pps_nal({}))), "The key frame has 3 bytes, too few"},
        {"lengths of 3 bytes", avc_units({slice}, {}, {}, 3), "The stream's units have lengths of 3 bytes"},
        {"damaged slice header", avc_units({nal_unit(3, 5, BitPacker().ue(9).ue(7).ue(0).trailing()) + "pad"}), "A slice header of the key frame is damaged."},
        {"damaged slice", avc_units({nal_unit(3, 5, slice_header(intra).ue(1).ue(0).text("000000000000000000000000"))}), "The key frame's coded data is damaged."},
        {"not referred to", avc_units({unreferenced}), "The key frame is marked as one that no picture refers to"},
        {"switching", avc_units({switching}), "The key frame has switching slices (SI)"},
        {"redundant", avc_units({pcm_slice_nal(copy, {macroblock})}, {}, redundant), "The key frame has redundant slices"},
        {"unknown set", avc_units({slice}, {}, other), "The key frame needs picture parameter set 0, which neither"},
        {"second sequence set", with_sample(with_length(pps_nal({}), 4) + with_length(slice, 4), avc_entry(other_sps, sps_nal({}))),
         "The key frame uses sequence parameter set 0; only number 1,"},
        {"no sequence set", with_sample(with_length(slice, 4), avc_entry("\6pad", "\6pad")), "Neither the key frame nor the file's avcC has"},
        {"sets in pieces", with_sample(with_length(slice, 4), avc_entry("\6", "\6pad")), "The lengths of the H.264 parameter sets in avcC"},
        {"damaged sequence set", with_sample(with_length(slice, 4), avc_entry("\x67\x42" + zeros(9), "\6pad")), "The H.264 sequence parameter set is damaged"},
        {"damaged picture set", with_sample(with_length(slice, 4), avc_entry(sps_nal({}), "\x68" + zeros(9))), "The H.264 picture parameter set is damaged."},
        {"too large", avc_units({slice}, huge), "The pictures are too large"},
        {"nothing left", avc_units({slice}, cropped), "The stream's cropping window leaves no picture."},
        {"base data offset", with_renamed(fragmented, full_box("tfhd", u32(1), 0x20000).substr(4), full_box("tfhd", u32(1), 0x20001).substr(4)),
         "The movie's fragments state a base data offset (tfhd)"},
        {"P-VOP", mpeg4_file(start_code(0x20, layer()), BitPacker().u(2, 1)), "The key frame is no intra picture: it is predicted from other pictures (P-VOP)."},
        {"VOP not coded", mpeg4_file(start_code(0x20, layer()), BitPacker().text("00 0 1 00000 1 0").trailing()), "The key frame is marked as not coded"},
        {"VOP cut off", mpeg4_file(start_code(0x20, layer()), BitPacker().text("00 0 1 00000 1 1 000 00100")), "The key frame's coded data is damaged."},
        {"shapes", mpeg4_file(start_code(0x20, layer(1)), {}), "The MPEG-4 stream uses shapes other than rectangles"},
        {"layer cut off", mpeg4_file(start_code(0x20), {}), "The MPEG-4 stream's video object layer header is cut off"},
        {"no layer", mpeg4_file("", {}), "Neither the key frame nor the file's esds has an MPEG-4 video object layer"},
        {"no VOP", with_sample("nothing", mpeg4_entry(start_code(0xb0, layer()))), "The key frame holds no picture: it has no picture start code."},
        {"H.263 inter", h263_file(0x10), "The key frame is no intra picture"},
        {"H.263 arithmetic", h263_file(0x04), "The H.263 stream uses arithmetic coding"},
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
        {5, "2000000000", "There is not memory enough for so many key frames."},
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

TEST_F(Explain, AMovieHiddenInFreeSpaceCounts) {
    const std::string path = folder_.path("x.mp4");
    std::string file = movie_file(movie());
    file = file.substr(0, file.find("moov") - 4) +
           box("free", full_box("mvhd", zeros(20)) + file.substr(file.find("trak") - 4));
    write_file(path, file);
    EXPECT_EQ(run(arguments(path)), 0) << report_;
    EXPECT_EQ(run_tool(arguments(path)), 0);
    write_file(path, with_renamed(file, "stss", "skip"));
    expect_reason("The video has no table of key frames (stss)", arguments(path));
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
