// SPDX-License-Identifier: BSD-2-Clause
// The report, on files of every kind that gives no thumbnail and some that do. The last sentence
// has to be right, and has to agree with what keystill itself does.
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <sstream>

#include "explain/report.h"
#include "explain/verdict.h"
#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/film_builder.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"
#include "tool/run_keystill.h"

// In milliseconds, as all times of the movie are.
static void set_sample_durations(TrackSpec* track, uint32_t duration) {
    for (FilmSample& sample : track->samples) sample.duration = duration;
    track->time_scale = 1000;
    track->duration = duration * static_cast<uint32_t>(track->samples.size());
}

static TrackSpec movie(const SpsSpec& sps = {}, const PpsSpec& pps = {}) {
    const std::string slice = pcm_slice_nal({}, {std::string(384, '\x80')});
    const std::string sample = with_length(slice, 4);
    TrackSpec track;
    track.entries = {avc_entry(sps_nal(sps), pps_nal(pps))};
    const std::string longer = sample + with_length("\6pad", 4);
    track.samples = {{sample}, {sample, false}, {longer}, {sample, false}, {sample}};
    track.samples_per_chunk = 5;
    set_sample_durations(&track, 1000);
    return track;
}

static std::string changed(void (*change)(TrackSpec*)) {
    TrackSpec track = movie();
    change(&track);
    return plain_film(track);
}

static std::string of_sps(const SpsSpec& sps) { return plain_film(movie(sps)); }

// A movie whose samples are all that one.
static std::string of_sample(const std::string& sample, const std::string& entry) {
    TrackSpec track = movie();
    track.entries = {entry};
    for (FilmSample& s : track.samples) s.bytes = sample;
    return plain_film(track);
}

// The same for the units of one sample.
static std::string of_units(const std::vector<std::string>& units, const SpsSpec& sps = {},
                            const PpsSpec& pps = {}, int length_size = 4) {
    std::string sample;
    for (const std::string& unit : units) sample += with_length(unit, length_size);
    return of_sample(sample, avc_entry(sps_nal(sps), pps_nal(pps), length_size));
}

static std::string start_code(int value, const BitPacker& bits = {}) {
    return zeros(2) + '\1' + static_cast<char>(value) + bits.str();
}

// The object layer of a 16x16 picture, or its start with another shape.
static std::string layer(unsigned shape = 0) {
    BitPacker bits;
    bits.u(1 + 8 + 1, 2).u(4, 1).u(1, 0).u(2, shape);
    bits.u(1, 1).u(16, 30).u(1, 1).u(1, 0).u(1, 1).u(13, 16).u(1, 1).u(13, 16).u(1, 1);
    return start_code(0x20, bits.text("0 1 0 0 0 1 1 0 0").trailing());
}

static std::string of_vop(const std::string& header, const BitPacker& vop = {}) {
    const std::string config = start_code(0xb0, BitPacker().u(8, 1)) + header;
    return of_sample(start_code(0xb6, vop), mpeg4_entry(config));
}

// The last bits of PTYPE decide.
static std::string of_h263(unsigned modes) {
    const BitPacker picture = BitPacker().u(22, 0x20).u(8, 0).u(5, 16).u(3, 2).u(5, modes).u(32, 0);
    return of_sample(picture.str(), h263_entry());
}

static std::string renamed(std::string file, const std::string& from, const std::string& to) {
    size_t count = 0;
    for (size_t at; (at = file.find(from)) != std::string::npos; ++count) {
        file.replace(at, from.size(), to);
    }
    EXPECT_GT(count, 0u) << from;
    return file;
}

// With another number at that place after the version and flags of that box; -3 is its size.
static std::string with_number(std::string file, const char* type, int at, uint32_t number) {
    return file.replace(file.find(type) + 8 + 4 * static_cast<size_t>(at), 4, u32(number));
}

// Puts a box into the movie, which is the file's end or has fragments after it, in front of
// another. The media data stands in front of it.
static std::string with_inserted(std::string file, const std::string& inserted,
                                 const char* following = "trak") {
    const size_t moov = file.find("moov") - 4, end = std::min(file.find("moof") - 4, file.size());
    file.insert(file.find(following) - 4, inserted);
    return file.replace(moov, 4, u32(end + inserted.size() - moov));
}

// With that place for each fragment in the random access table.
static std::string with_fragments_at(std::string file, uint32_t offset) {
    const size_t entries = file.find("tfra") + 20;
    for (size_t i = 0; i < 5; ++i) file.replace(entries + 11 * i + 4, 4, u32(offset));
    return file;
}

static std::string hidden_in_free(const std::string& file) {
    const std::string movie = full_box("mvhd", zeros(20)) + file.substr(file.find("trak") - 4);
    return file.substr(0, file.find("moov") - 4) + box("free", movie);
}

// A sample description, and handlers that all want it to be read again.
static std::string parsed_again() {
    std::string file = full_box("stsd", "");
    for (int i = 0; i < 600000; ++i) file += box("hdlr", zeros(8) + "soun");
    return file;
}

// Key frames that are in the tables' first part and in their last, in turns.
static std::string far_apart() {
    return changed([](TrackSpec* m) {
        m->samples.assign(5000, {"x"});
        m->samples_per_chunk = 1;
        for (int i = 0; i < 100000; ++i) m->sync_numbers.push_back(i % 2 == 0 ? 1 : 5000);
    });
}

// Whether the text is the sentence with something in place of each {}.
static bool is_filled_in(std::string sentence, const std::string& text) {
    for (size_t at; (at = sentence.find("{}")) != std::string::npos;) sentence.replace(at, 2, "*");
    return fnmatch(sentence.c_str(), text.c_str(), 0) == 0;
}

// Each reason has a file that shows it, but those that no file brings about: arguments that are
// left out have values, and what goes nowhere can be written.
static void expect_all_reasons_in(const std::vector<std::string>& sentences) {
    static const std::set<Reason> kOthers = {Reason::kTooFewArguments, Reason::kNotWritten,
                                             Reason::kNoAnswer};
    for (int i = 1; i <= static_cast<int>(kLastReason); ++i) {
        const Reason reason = static_cast<Reason>(i);
        const std::string sentence = wording_of(reason).sentence;
        const bool is_shown = std::any_of(sentences.begin(), sentences.end(),
                                          [&](auto& text) { return is_filled_in(sentence, text); });
        EXPECT_NE(is_shown, kOthers.contains(reason)) << sentence;
    }
}

struct Explain : testing::Test {
    // The status; the report is in report_.
    int run(const std::vector<std::string>& args) {
        CommandLine line("keystill-explain", args);
        int status = 0;
        report_ =
            written_by([&](FILE* out) { status = run_explain(line.argc(), line.argv(), out); });
        EXPECT_EQ(g_memUsed, 0);
        return status;
    }
    // The same for the file with all arguments, which has to agree with keystill's own status.
    int run_both(const std::string& file, size_t changed = 0, const std::string& value = "") {
        write_file(path_, file);
        std::vector<std::string> args = {path_, path_ + ".jpg", "16", "16", "85", "5", "10", "70"};
        if (!value.empty()) args[changed] = value;
        CommandLine line("keystill", args);
        const int status = run(args);
        EXPECT_EQ(run_keystill(line.argc(), line.argv()), status) << report_;
        return status;
    }
    std::string sentence_of_report() const {
        const std::string before = "\nThere will be no thumbnail. ";
        const size_t begin = report_.find(before) + before.size();
        return report_.substr(begin, report_.find('\n', begin) - begin);
    }
    // Sentences by their codes.
    std::map<std::string, std::string> listed_reasons() {
        EXPECT_EQ(run({"--reasons"}), 0);
        std::map<std::string, std::string> reasons;
        std::istringstream lines(report_);
        for (std::string line; std::getline(lines, line);) {
            const size_t colon = line.find(": ");
            EXPECT_TRUE(reasons.emplace(line.substr(0, colon), line.substr(colon + 2)).second);
        }
        return reasons;
    }
    void expect_report(std::initializer_list<const char*> texts) {
        for (const char* text : texts) EXPECT_NE(report_.find(text), std::string::npos) << report_;
    }
    TempFolder folder_;
    std::string path_ = folder_.path("x.mp4");
    std::string report_;
};

TEST_F(Explain, EachRefusalHasItsReason) {
    const std::string good = plain_film(movie()), fragmented = fragmented_film(movie());
    const std::string macroblock(384, '\x80'), slice = pcm_slice_nal({}, {macroblock});
    const std::string sample = with_length(slice, 4), sets = avc_entry(sps_nal({}), pps_nal({}));
    const std::string text = folder_.path("x.txt");
    write_file(text, good);
    mkdir(folder_.path("folder.mp4").c_str(), 0700);
    mkfifo(folder_.path("pipe.mp4").c_str(), 0600);
    const std::string mpeg4 = of_vop(layer()), sound = box("mdia", handler("soun"));
    const std::string packet = "\x47" + std::string(187, '\xff'), timed = zeros(4) + packet;
    const size_t last_data = fragmented.rfind("mdat") + 20;
    const size_t avcc = good.find("avcC") + 4;
    const size_t picture_sets = avcc + 8 + sps_nal({}).size();
    const std::map<std::string, std::string> reasons = listed_reasons();
    // A reason is a code, or the begin of a sentence with values; the value takes the place of that
    // argument.
    // clang-format off
    const struct { std::string reason, file; size_t argument = 0; std::string value = ""; }
    kCases[] = {
        {"input-too-short", ""},
        {"no-movie", std::string(64, 'x')},
        {"It is a file of another kind, Matroska or WebM;", "\x1a\x45\xdf\xa3" + zeros(60)},
        {"It is a file of another kind, an MPEG transport stream;", packet + packet + packet},
        {"It is a file of another kind, an MPEG transport stream;", timed + timed + timed},
        {"boxes-broken", good + u32(1) + "free" + zeros(8)},
        {"no-index", box("ftyp", "isom" + zeros(4))},
        {"The file is cut off: it ends at 1000, its mdat box should go on", good.substr(0, 1000)},
        {"no-video", renamed(good, "vide", "soun")},
        {"video-not-reached", box("moov", u32(200) + "abcd") + good},
        {"boxes-given-up", parsed_again()},
        {"tables-given-up", far_apart(), 5, "1000000"},
        {"The video's codec is HEVC (hvc1)", renamed(good, "avc1", "hvc1")},
        {"The video's codec is not known here (\\x01\\x02ab)", renamed(good, "avc1", "\1\2ab")},
        {"The video is protected (drmi)", renamed(good, "avc1", "drmi")},
        {"no-stss", renamed(good, "stss", "free")},
        {"no-pictures", with_number(renamed(good, "stss", "free"), "stsz", 1, 0)},
        {"no-stss", renamed(hidden_in_free(good), "stss", "skip")},
        {"stss-empty", with_number(good, "stss", 0, 0)},
        {"co64-only", renamed(good, "stco", "co64")},
        {"The video's sample tables are missing, empty or cannot be read: stts.",
         renamed(good, "stts", "free")},
        {"constant-size", with_number(good, "stsz", 0, 500)},
        {"A key frame is said to have 4294967295", with_number(good, "stsz", 6, ~0u), 6, "100"},
        {"stss-skipped", renamed(good, u32(28) + "stss", u32(1) + "stss")},
        {"The file is cut off: it ends at 2300, its moov box should go on", good.substr(0, 2300)},
        {"tfra-empty", with_number(fragmented, "tfra", 2, 0)},
        {"no-avcc", renamed(good, "avcC", "free")},
        {"esds-unknown", of_sample(sample, mpeg4_entry("none"))},
        {"no-d263", of_sample(sample, box("s263", zeros(90)))},
        {"stz2", renamed(good, "stsz", "stz2")},
        {"The metadata in front of the video track (udta at ",
         with_inserted(good, box("udta", box("abcd", zeros(8)) + zeros(4)))},
        {"no-mfra", renamed(fragmented, "mfra", "free")},
        {"no-tfra-of-video", with_number(fragmented, "tfra", 0, 2)},
        {"base-data-offset", renamed(fragmented, "tfhd" + u32(0x20000), "tfhd" + u32(0x20001))},
        {"all-empty", with_number(good, "stsz", 6, 0), 6, "100"},
        {"The file is cut off: it ends at 2666, and the key frame to decode would go on to 100978.",
         with_number(good, "stco", 1, 99000)},

        {"The file is cut off: it ends at " + std::to_string(last_data) + ", its mdat box should go",
         fragmented.substr(0, last_data)},
        {"index-damaged", with_inserted(good, u32(14) + "skip") + box("free", zeros(8))},
        {"A box of the video track (hdlr) has a 64-bit or open size", with_number(good, "hdlr", -3, 0)},
        {"no-codec", with_number(good, "stsd", 0, 0)},
        {"The last video track's codec is HEVC (hvc1)",
         with_inserted(renamed(good, "avc1", "hvc1"), good.substr(good.find("trak") - 4))},
        {"description-unreadable", with_number(good, "stsd", -3, 0)},
        {"no-sequence-set", std::string(good).replace(avcc + 5, 1, "\xe0")},
        {"no-picture-set", std::string(good).replace(picture_sets, 1, zeros(1))},
        {"The video's codec is JPEG (mp4v with object type 108)",
         of_sample(sample, mpeg4_entry(std::string("\0\4\1\x6c", 4)))},
        {"no-esds", renamed(mpeg4, "esds", "abcd")},
        {"esds-elsewhere",
         of_sample(sample, box("mp4v", zeros(78) + box("pasp", zeros(8)) + full_box("esds", "")))},
        {"last-track-not-video",
         with_inserted(fragmented, box("trak", track_header(7) + sound), "mvex")},
        {"tfra-skipped", renamed(fragmented, "trun", "free")},
        {"too-many-fragments", with_number(fragmented, "tfra", 2, 300'000'000)},
        {"fragment-header", with_fragments_at(fragmented, fragmented.find(zeros(8)))},
        {"no-sizes-in-fragments", with_fragments_at(fragmented, 0)},
        {"The key frame to decode has 50000000 bytes, more",
         with_number(good, "stsz", 6, 50'000'000) + std::string(50'000'000, '\0'), 6, "100"},

        {"h264-interlaced", of_sps({.profile_idc = 100, .frame_mbs_only_flag = 0})},
        {"The H.264 stream has 10-bit", of_sps({.profile_idc = 100, .bit_depth_luma_minus8 = 2})},
        {"The H.264 stream has 9-bit", of_sps({.profile_idc = 100, .bit_depth_chroma_minus8 = 1})},
        {"The H.264 stream is 4:2:2", of_sps({.profile_idc = 100, .chroma_format_idc = 2})},
        {"h264-lossless", of_sps({.profile_idc = 100, .lossless = 1})},
        {"h264-slice-groups", plain_film(movie({}, {.num_slice_groups_minus1 = 1}))},
        {"h264-too-many-macroblocks", of_sps({.width_mbs = 256, .height_mbs = 256})},
        {"nothing-visible", of_sps({.crop = {4, 4, 0, 0}})},
        {"The stream's units have lengths of 3 bytes", of_units({slice}, {}, {}, 3)},
        {"The key frame is no intra", of_units({pcm_slice_nal({.slice_type = 5}, {macroblock})})},
        {"The key frame has switching slices (SI)",
         of_units({pcm_slice_nal({.slice_type = 9}, {macroblock})})},
        {"h264-sample-run", of_sample(std::string(40, 'e'), sets)},
        {"h264-sample-too-short", of_sample("\1\2\3", sets)},
        {"h264-slices-missing", of_sps({.width_mbs = 2})},
        {"h264-slice-overlap", of_units({slice, slice}, {.width_mbs = 2})},
        {"h264-no-slice", of_units({"\6pad"})},
        {"h264-slice-header",
         of_units({nal_unit(3, 5, BitPacker().ue(9).ue(7).ue(0).trailing()) + "pad"})},
        {"h264-slice-cut-off", of_units({nal_unit(3, 5, slice_header({}).ue(1).ue(0).u(24, 0))})},
        {"h264-idr-without-reference", of_units({nal_unit(0, 5, slice_header({}).trailing())})},
        {"h264-redundant-slice",
         of_units({pcm_slice_nal({.redundant = "010"}, {macroblock})}, {}, {.redundant_pic_cnt_present = 1})},
        {"The key frame needs picture parameter set 0, which", of_units({slice}, {}, {.id = 1})},
        {"The key frame uses sequence parameter set 0; only the first",
         of_sample(with_length(pps_nal({}), 4) + sample, avc_entry(sps_nal({.id = 1}), sps_nal({})))},
        {"h264-no-sequence-set", of_sample(sample, avc_entry("\6pad", "\6pad"))},
        {"h264-parameter-set-run", of_sample(sample, avc_entry("\6", "\6pad"))},
        {"h264-sequence-set", of_sample(sample, avc_entry("\x67\x42" + zeros(9), "\6pad"))},
        {"h264-picture-set", of_sample(sample, avc_entry(sps_nal({}), "\x68" + zeros(9)))},

        {"mpeg4-not-intra", of_vop(layer(), BitPacker().u(2, 1))},
        {"mpeg4-not-coded", of_vop(layer(), BitPacker("00 0 1 00000 1 0").trailing())},
        {"mpeg4-cut-off", of_vop(layer(), BitPacker("00 0 1 00000 1 1 000 00100"))},
        {"mpeg4-shape", of_vop(layer(1))},
        {"mpeg4-damaged-layer", of_vop(start_code(0x20))},
        {"mpeg4-no-layer", of_vop("")},
        {"mpeg4-no-picture", of_sample("nothing", mpeg4_entry(start_code(0xb0) + layer()))},
        {"mpeg4-not-intra", of_h263(0x10)},
        {"mpeg4-arithmetic-coding", of_h263(0x04)},

        {"The width 161 is odd: thumbnails have even sides.\nAsk for 160", good, 2, "161"},
        {"The height -2 is negative.", good, 3, "-2"},
        {"The JPEG quality is 101", good, 4, "101"},
        {"The number of key frames to look at is 0.", good, 5, "0"},
        {"The clip offset is -5", good, 6, "-5"},
        {"The size percentile is 101", good, 7, "101"},
        {"input-name", good, 0, text},
        {"The file cannot be looked at: No such file", good, 0, folder_.path("none.mp4")},
        {"The output cannot be created: No such file", good, 1, folder_.path("none/o.jpg")},
        {"folder-as-output", good, 1, folder_.path("")},
        {"output-is-input", good, 1, path_},
        {"folder-as-input", good, 0, folder_.path("folder.mp4")},
        {"device-as-input", good, 0, folder_.path("pipe.mp4")},
        {"too-many-key-frames", good, 5, "2000000000"},
        {"The picture would come out as 70000x70000", good, 3, "70000"},
    };
    // clang-format on
    std::vector<std::string> sentences;
    for (const auto& c : kCases) {
        EXPECT_EQ(run_both(c.file, c.argument, c.value), 1) << c.reason;
        sentences.push_back(sentence_of_report());
        const auto reason = reasons.find(c.reason);
        if (reason != reasons.end()) {
            EXPECT_TRUE(is_filled_in(reason->second, sentences.back())) << report_;
        } else {
            expect_report({("\nThere will be no thumbnail. " + c.reason).c_str()});
        }
    }
    EXPECT_EQ(run_both(good), 0);
    for (int n = 1; n < 30; ++n) {
        fail_allocation(n);
        run({path_});
        sentences.push_back(sentence_of_report());
    }
    fail_allocation(0);
    chmod(folder_.path("").c_str(), 0755);
    chmod(path_.c_str(), 0);
    const bool was_root = setresuid(65534, 65534, 0) == 0;
    EXPECT_EQ(run({path_}), 1);
    EXPECT_EQ(was_root ? setresuid(0, 0, 0) : 0, 0);
    sentences.push_back(sentence_of_report());
    expect_all_reasons_in(sentences);
    unlink(path_.c_str());
    EXPECT_EQ(run_both(hidden_in_free(good)), 0) << report_;
}

TEST_F(Explain, GoodFilesShowTheirKeyFramesAndThePick) {
    EXPECT_EQ(run_both(plain_film(movie())), 0);
    expect_report(
        {"codec       H.264 (avc1), Baseline profile (66), level 3.0, 8-bit 4:2:0, progressive\n",
         "size        16x16\n", "duration    0:00:05.000\n", "key frames  3\n",
         "         0     0:00:00.000         394  collected\n",
         "         1     0:00:02.000         402  collected, picked\n",
         "         2     0:00:04.000         394  collected\n", "mp4_parse_stsd : avc1\n",
         "pixels, from key frame 1.\n"});
    EXPECT_EQ(run({path_, "", "0", "0", "85", "1", "61", "0"}), 0);
    expect_report({"16x16 pixels, from key frame 2.\n"});
    EXPECT_EQ(run_both(with_number(plain_film(movie()), "stsz", 2, 0), 6, "0"), 0);
    expect_report({"         0     0:00:00.000           0  empty\n"});
    EXPECT_EQ(run_both(with_number(plain_film(movie()), "mdhd", 3, ~0u), 6, "0"), 0);
    expect_report({"duration     not stated\n"});
    EXPECT_EQ(run_both(fragmented_film(movie()), 7, "100"), 0);
    expect_report({"         2     0:00:02.000         402  collected, picked\n"});
    EXPECT_EQ(run_both(changed([](TrackSpec* m) { set_sample_durations(m, 40000); })), 0);
    expect_report(
        {"duration    0:03:20.000\n", "         1     0:01:20.000         402  collected"});
    // Its track header has another size, for pixels that are no squares.
    std::string odd = read_file(KEYSTILL_MEDIA "mpeg4_interlaced_odd.mp4");
    odd = with_number(with_number(odd, "pasp", -1, 8), "pasp", 0, 4);
    EXPECT_EQ(run_both(with_number(odd, "tkhd", 19, 48 << 16), 3, "0"), 0);
    expect_report({"size        101x75\n", "thumbnail of 101x75", "by one sample.\n"});
    EXPECT_EQ(run({"--json", path_}), 0);
    expect_report({"\"width\":101,\"height\":75,", "\"pixel_aspect\":[2,1],"});
}

TEST_F(Explain, LongTablesAreCutUnlessAllIsAskedFor) {
    EXPECT_EQ(run_both(changed([](TrackSpec* m) {
                  m->samples.assign(30, m->samples[0]);
                  set_sample_durations(m, 1000);
              })),
              0);
    EXPECT_EQ(report_.find("        20     0:00:20.000"), std::string::npos);
    expect_report({"    ...\n        29     0:00:29.000"});
    EXPECT_EQ(run({"--all", path_}), 0);
    expect_report({"        20     0:00:20.000"});
    EXPECT_EQ(run({path_, "--all"}), 0);
    expect_report({"        20     0:00:20.000"});
    // After a double dash it is the name of the output.
    EXPECT_EQ(run({"--", path_, "--all"}), 0);
    EXPECT_EQ(report_.find("        20     0:00:20.000"), std::string::npos);
    const std::string page = folder_.path("page.html");
    write_file(path_, changed([](TrackSpec* m) {
                   m->samples.assign(203, m->samples[0]);
                   set_sample_durations(m, 1000);
               }));
    EXPECT_EQ(run({"--html", page, path_, "16", "16", "85", "5", "100", "70"}), 0);
    report_ = read_file(page);
    size_t figures = 0, at = 0;
    while ((at = report_.find("<figure", at) + 1) != 0) ++figures;
    EXPECT_EQ(figures, 200u);
}

TEST_F(Explain, WhatComesFromTheFileOrItsNameIsEscaped) {
    const std::string good = plain_film(movie());
    path_ = folder_.path("a\033[31m\342\200\256b.mp4");
    EXPECT_EQ(run_both(good + box("\23331m") + box("\251too")), 0);
    expect_report({R"(a\x1b[31m\xe2\x80\xaeb.mp4, )", R"(  \x9b31m  unknown)", R"(  \xa9too  )"});
    EXPECT_EQ(run_both(renamed(good, "avc1", "\342\200\2561")), 1);
    expect_report({R"((\xe2\x80\xae1))"});
}

TEST_F(Explain, ALongLogTakesNoMemory) {
    std::string many;
    for (uint32_t i = 0; i < 30000; ++i)
        many += box(i % 2 ? "abc" + std::string(1, ' ' + i % 64) : "efgh", "");
    EXPECT_EQ(run_both(plain_film(movie()) + many), 0);
    expect_report({"  ... and 29"});
    EXPECT_EQ(run_both(plain_film(movie()) + many + many + many + many), 0);
    expect_report({"  ... and many more"});
    EXPECT_LT(report_.size(), 10000u);
    EXPECT_EQ(run_both(plain_film(movie()) + many), 0);
    expect_report({"  ... and 29"});
}

TEST_F(Explain, TheSandboxChangesNoReport) {
    const std::string report = folder_.path("report"), old = folder_.path("old.mp4");
    const std::string page = folder_.path("page.html");
    write_file(old, "old");
    const std::string good = plain_film(movie());
    const auto check = [&](const std::string& file, const std::vector<std::string>& args) {
        SCOPED_TRACE(args[0]);
        write_file(path_, file);
        const int want = run(args);
        const std::string want_page = args[0] == "--html" ? read_file(page) : "";
        FILE* const out = fopen(report.c_str(), "wb");
        EXPECT_EQ(status_apart([&] {
                      CommandLine line("keystill-explain", args);
                      const int status =
                          run_explain(line.argc(), line.argv(), out, Surroundings::kSandbox);
                      fclose(out);
                      return status;
                  }),
                  want);
        fclose(out);
        EXPECT_EQ(read_file(report), report_);
        EXPECT_EQ(args[0] == "--html" ? read_file(page) : "", want_page);
    };
    check(good, {path_, folder_.path("new.jpg")});
    check(good, {path_, old});
    check(good, {path_, path_});
    check(good, {path_, folder_.path("none/x")});
    check(renamed(good, "avc1", "hvc1"), {path_, "x.jpg"});
    check("", {path_, "x.jpg"});
    check(good, {"--brief", path_, old, path_, "none.mp4"});
    check(good, {"--json", path_, old, "16", "16", "85", "2", "0", "0"});
    check(good, {"--html", page, path_, old, path_});
}

TEST_F(Explain, ManyFilesHaveALineEach) {
    const std::string other = folder_.path("a\xff\"<b>\\.mp4"), wide = folder_.path("wide.mov");
    write_file(path_, plain_film(movie()));
    write_file(other, renamed(plain_film(movie()), "avc1", "hv\"<"));
    std::string turned = with_inserted(plain_film(movie()), "");
    const size_t matrix = turned.find("tkhd") + 4 + 40;
    turned.replace(matrix, 20, u32(0) + u32(0x10000) + u32(0) + u32(0x10000) + u32(0));
    write_file(wide, turned);
    EXPECT_EQ(run({"--brief", path_, other}), 1);
    EXPECT_EQ(report_, path_ + ": 239x240, key frame 1 at 0:00:02.000\n" + folder_.path("") +
                           "a\\xff\"<b>\\\\.mp4: none (other-codec). The video's codec is not known"
                           " here (hv\"<); H.264 (avc1), MPEG-4 Part 2 (mp4v) and H.263 (s263) can"
                           " be decoded.\n");
    EXPECT_EQ(run({"--json", path_, wide, "16", "16", "85", "2", "0", "0"}), 0);
    expect_report({
        "\"codec\":{\"name\":\"H.264\",\"format\":\"avc1\",\"profile\":\"Baseline\",\"level\":3.0,",
        "\"width\":16,\"height\":16,\"rotation\":0,\"mirrored\":false,\"pixel_aspect\":[1,1],",
        "\"key_frames\":[{\"index\":0,\"time_ms\":0,\"bytes\":394,\"collected\":true,"
        "\"picked\":true},{\"index\":1,\"time_ms\":2000,\"bytes\":402,\"collected\":true,",
        "{\"index\":2,\"time_ms\":4000,\"bytes\":394,\"collected\":false,\"picked\":false}],"
        "\"thumbnail\":{\"width\":16,\"height\":16,\"key_frame\":0},\"reason\":null}\n",
        "\"rotation\":90,\"mirrored\":true,",
    });
    // Of seven numbers the first could be a file as well as the last.
    EXPECT_EQ(run({"--brief", path_, "1", "16", "16", "85", "2", "0", "70"}), 1);
    expect_report({"\n1: none", "\n70: none"});
    EXPECT_EQ(run({"--json", other, "none.mp4"}), 1);
    expect_report({"a\\\\xff\\\"<b>\\\\\\\\.mp4\",\"bytes\":", "\"format\":\"hv\\\"<\"",
                   "\"reason\":{\"code\":\"other-codec\",", "\"advice\":[\"One picture: ",
                   "none.mp4\",\"bytes\":null,\"container\":null,\"codec\":null,"});
    const std::string page = folder_.path("page.html");
    EXPECT_EQ(run({"--html", page, path_, other}), 1);
    EXPECT_EQ(report_, "");
    report_ = read_file(page);
    expect_report({"a\\xff&quot;&lt;b&gt;\\\\.mp4</h2>", "(hv&quot;&lt;)",
                   "<figure class=\"collected\"><img alt=\"\" src=\"data:image/jpeg;base64,/9j/",
                   "<figure class=\"picked\">",
                   " (40 %)<br>402 bytes<br>picked, percentile 67 to 100"});
}

TEST_F(Explain, OptionsAndUsage) {
    EXPECT_EQ(run({"--version"}), 0);
    EXPECT_EQ(report_, "keystill-explain " KEYSTILL_VERSION "\n");
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_EQ(report_.rfind("usage: keystill-explain ", 0), 0u);
    testing::internal::CaptureStderr();
    for (const std::vector<std::string>& wrong : std::vector<std::vector<std::string>>{
             {}, {"--json"}, {"--json", "--brief", path_}, {"--html"}, {"--html", "x.html"}}) {
        EXPECT_EQ(run(wrong), 2);
    }
    EXPECT_EQ(report_, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr().rfind("usage: ", 0), 0u);
    // The page's name was left out: the video stays.
    write_file(path_, plain_film(movie()));
    testing::internal::CaptureStderr();
    EXPECT_EQ(run({"--html", path_, path_}), 2);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("a video is no name"), std::string::npos);
    EXPECT_EQ(read_file(path_), plain_film(movie()));
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{"--version"}, {path_}, {"--brief", path_}}) {
        CommandLine line("keystill-explain", words);
        FILE* const full = fopen("/dev/full", "wb");
        EXPECT_EQ(run_explain(line.argc(), line.argv(), full), 2);
        EXPECT_EQ(status_apart([&] {
                      return run_explain(line.argc(), line.argv(), full, Surroundings::kSandbox);
                  }),
                  2);
        fclose(full);
    }
    // An output that is there and is called like a video.
    const std::string film = folder_.path("film.mov");
    EXPECT_EQ(run({path_, film}), 0);
    EXPECT_EQ(report_.find("it would be replaced by the picture"), std::string::npos);
    write_file(film, "film");
    EXPECT_EQ(run({path_, film}), 0);
    expect_report({"The output is a video too, by its name: it would be replaced by the picture."});
    for (const auto& [code, sentence] : listed_reasons()) {
        const char* const kLetters = "abcdefghijklmnopqrstuvwxyz0123456789-";
        EXPECT_EQ(code.find_first_not_of(kLetters), std::string::npos) << code;
    }
}
