// SPDX-License-Identifier: BSD-2-Clause
// The run under faults of its surroundings and on hostile files: it ends with 0 or 1, soon, and
// within the memory that README.md states.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/film_builder.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"
#include "tool/run_keystill.h"

// Sanitizers and emulators take time and memory of their own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(KEYSTILL_EMULATED)
static constexpr bool kIsInstrumented = true;
#else
static constexpr bool kIsInstrumented = false;
#endif

static const std::string kMedia = KEYSTILL_MEDIA;
static const char* const kClips[] = {
    "audio_first.mp4", "cabac_8x8.mp4",  "cavlc_slices_crop.mp4",   "fragmented.mp4",
    "grey.mp4",        "h263.3gp",       "h263_annexes.3gp",        "index_last.mov",
    "mpeg4.mp4",       "raw_blocks.mp4", "mpeg4_interlaced_odd.mp4"};

// The formula of README.md, for pictures of so many bytes and the thumbnails made here.
static int64_t most_memory(uint64_t file_size, int64_t picture) {
    return (4 << 20) + 8 * static_cast<int64_t>(file_size) + 2 * (picture + 160 * 128 * 3 / 2);
}

// Faults of the reads from the file.
static struct {
    int calls_until_fault;  // 0 for none
    enum { kError, kEnd, kOneByte } kind;
    int calls;
} g_reads;

extern "C" {
ssize_t __real_pread64(int descriptor, void* buffer, size_t length, off64_t offset);
ssize_t __wrap_pread64(int descriptor, void* buffer, size_t length, off64_t offset) {
    ++g_reads.calls;
    if (g_reads.calls_until_fault == 0 || g_reads.calls < g_reads.calls_until_fault) {
        return __real_pread64(descriptor, buffer, length, offset);
    }
    if (g_reads.kind == g_reads.kError) return -1;
    if (g_reads.kind == g_reads.kEnd) return 0;
    return __real_pread64(descriptor, buffer, std::min<size_t>(length, 1), offset);
}
}

struct Faults : testing::Test {
    int run(const std::string& input, const char* key_frames = "5") {
        const char* const in = input.c_str();
        const char* const argv[] = {"",  in,  output_.c_str(), "160", "120", "85", key_frames,
                                    "0", "50"};
        unlink(output_.c_str());
        const clock_t start = clock();  // of the processor
        const int status = run_keystill(9, argv);
        EXPECT_LT(clock() - start, (kIsInstrumented ? 20 : 2) * CLOCKS_PER_SEC);
        EXPECT_LT(status, 2);
        EXPECT_EQ(g_memUsed, 0);
        EXPECT_EQ(file_exists(output_), status == 0);
        return status;
    }

    // Works in a process of its own, whose bytes, of which this one's are a part, stay below that.
    void work_within(int64_t most_memory, const std::function<void()>& work) {
        const auto has_failed = [&] {
            work();
            rusage usage = {};
            getrusage(RUSAGE_SELF, &usage);
            EXPECT_LT(int64_t{usage.ru_maxrss} * 1024, most_memory);
            return HasFailure();
        };
        EXPECT_EQ(status_apart(has_failed), 0);
    }

    TempFolder folder_;
    const std::string output_ = folder_.path("out.jpg");
};

TEST_F(Faults, AllocationsThatFailAreSurvived) {
    for (const char* const name : kClips) {
        int n = 0;
        do {
            SCOPED_TRACE(testing::Message() << name << " " << n);
            fail_allocation(++n);
            const int status = run(kMedia + name);
            EXPECT_TRUE(status == 0 || has_allocation_failed());
        } while (has_allocation_failed());
        fail_allocation(0);
        EXPECT_GT(n, 10) << name;
    }
}

TEST_F(Faults, ReadsThatFailOrComeShortAreSurvived) {
    for (const char* const name : kClips) {
        SCOPED_TRACE(name);
        g_reads = {0, g_reads.kError, 0};
        EXPECT_EQ(run(kMedia + name), 0);
        const int calls = g_reads.calls;
        ASSERT_GT(calls, 1);
        const std::string whole = read_file(output_);
        g_reads = {1, g_reads.kOneByte, 0};
        EXPECT_EQ(run(kMedia + name), 0);
        EXPECT_EQ(read_file(output_), whole);
        for (int n = 1; n <= calls; ++n) {
            for (const auto kind : {g_reads.kError, g_reads.kEnd}) {
                g_reads = {n, kind, 0};
                run(kMedia + name);
            }
        }
    }
    g_reads = {};
}

TEST_F(Faults, IndexAfterFourGiBIsFoundAndMediaDataCostsNoMemory) {
    const std::string clip = read_file(kMedia + "index_last.mov"), path = folder_.path("large.mov");
    const size_t movie = clip.find("moov") - 4;
    constexpr uint64_t kHole = UINT64_C(5) << 30;
    write_file(path, clip.substr(0, movie) + u32(1) + "free" + u64(kHole));
    if (truncate(path.c_str(), static_cast<off_t>(movie + kHole)) != 0) GTEST_SKIP();
    std::ofstream(path, std::ios::app) << clip.substr(movie);
    EXPECT_EQ(run(path), 0);
    EXPECT_LT(g_memPeak, most_memory(clip.size(), 1 << 20));
    const std::string got = read_file(output_);
    EXPECT_EQ(run(kMedia + "index_last.mov"), 0);
    EXPECT_EQ(got, read_file(output_));
}

static std::string repeated(uint32_t count, const std::function<std::string(uint32_t)>& piece) {
    std::string out;
    for (uint32_t i = 0; i < count; ++i) out += piece(i);
    return out;
}

// Boxes in each other.
static std::string nested(const char* type) {
    return repeated(100000, [type](uint32_t i) { return u32((100000 - i) * 8) + type; });
}

// A movie with these boxes in its sample table, after the description.
static std::string movie_of_tables(const std::string& tables,
                                   const std::string& sequence_set = "SPS") {
    return movie_of(full_box("stsd", u32(1) + avc_entry(sequence_set, "PPS")) + tables);
}

// A movie of that many key frames, all of them the same bytes of the file.
static std::string overlapping_movie(uint32_t key_frames, uint32_t set_length, uint32_t size) {
    const auto all = [key_frames](auto field) { return repeated(key_frames, field); };
    const std::string numbers = all([](uint32_t i) { return u32(i + 1); });
    const std::string sizes = all([size](uint32_t) { return u32(size); });
    const std::string chunks = repeated(key_frames / 1000, [](uint32_t) { return u32(100); });
    return movie_of_tables(full_box("stts", words({1, key_frames, 10})) +
                               full_box("stss", u32(key_frames) + numbers) +
                               full_box("stsc", words({1, 1, 1000, 1})) +
                               full_box("stsz", words({0, key_frames}) + sizes) +
                               full_box("stco", u32(key_frames / 1000) + chunks),
                           std::string(set_length, 's')) +
           zeros(size);
}

// A movie with a table of that type that declares four billion entries.
static std::string huge_count(const char* type, size_t count_offset) {
    std::string movie = read_file(kMedia + kClips[1]);
    return movie.replace(movie.find(type) + count_offset, 4, u32(0xffffffff));
}

// Fragments looked up in the same spot, whose boxes lie further apart than the buffer reaches.
static std::string scattered_fragment() {
    const std::string clip = read_file(kMedia + "fragmented.mp4");
    const size_t start = clip.find("moof") - 4;
    const std::string boxes = repeated(1000, [](uint32_t) { return box("free", zeros(4200)); });
    const std::string entries = repeated(500000, [start](uint32_t i) {
        return words({i, start}) + "\1\1\1";
    });
    const std::string run = full_box("tfhd", u32(1)) + full_box("trun", words({1, 64}));
    return clip.substr(0, start) + box("moof", boxes + box("traf", run)) +
           box("mfra", full_box("tfra", words({1, 0, 500000}) + entries));
}

TEST_F(Faults, HostileFilesCostLittleTimeAndMemory) {
    const auto check = [&](const char* name, const std::function<std::string()>& make) {
        SCOPED_TRACE(name);
        const std::string path = folder_.path("x.mp4");
        work_within(INT64_MAX, [&] { write_file(path, make()); });  // does not count
        constexpr int64_t kGTest = 8 << 20;
        const int64_t most = most_memory(std::filesystem::file_size(path), 1 << 20) + kGTest;
        work_within(kIsInstrumented ? INT64_MAX : most, [&] { run(path, "1000000"); });
    };
    check("nested movies", [] { return nested("moov"); });
    check("nested user data", [] { return nested("udta"); });
    check("boxes up to the end", [] { return zeros(4) + "moov" + zeros(99999); });
    check("boxes in place", [] { return u32(1) + "free" + zeros(800000); });
    check("free space", [] { return repeated(100000, [](uint32_t) { return box("free"); }); });
    check("overlapping key frames", [] { return overlapping_movie(100000, 60000, 1000000); });
    check("tiny key frames", [] { return overlapping_movie(600000, 1, 1); });
    check("scattered fragment", scattered_fragment);
    check("stsz", [] { return huge_count("stsz", 12); });
    for (const char* const type : {"stts", "stss", "stsc", "stco"}) {
        check(type, [type] { return huge_count(type, 8); });
    }
}

// Reads a hole as large as the largest table. What a virtual machine is charged for memory that it
// touches for the first time is not the program's cost.
static void touch_page_cache(const std::string& path) {
    write_file(path, "");
    if (truncate(path.c_str(), off_t{2} << 30) != 0) return;
    std::ifstream file(path, std::ios::binary);
    for (std::string block(1 << 20, 0); file.read(block.data(), 1 << 20);) continue;
    unlink(path.c_str());
}

// A few kilobytes that claim tables and samples in the hole after them.
TEST_F(Faults, HolesCostLittleTimeAndMemory) {
    touch_page_cache(folder_.path("hole"));
    const auto check = [&](const char* name, const std::string& bytes) {
        SCOPED_TRACE(name);
        const std::string path = folder_.path("x.mp4");
        write_file(path, bytes);
        if (truncate(path.c_str(), off_t{1} << 40) != 0) GTEST_SKIP();
        work_within(kIsInstrumented ? 1 << 30 : 64 << 20,
                    [&] { EXPECT_EQ(run(path, "80000000"), 1); });
    };
    constexpr uint32_t kMany = 536870000;  // words in the largest table that is accepted
    std::vector<uint64_t> falling = {500};
    for (uint32_t i = 0; i < 500; ++i) falling.push_back(kMany - 1000 * i);
    const std::string stts = full_box("stts", words({1, 1000, 10})),
                      stss = full_box("stss", words({5, 1, 2, 3, 4, 5})),
                      stsc = full_box("stsc", words({1, 1, kMany, 1})),
                      stco = full_box("stco", words({1, 9000})),
                      stsz = full_box("stsz", words({0, 5, 9, 9, 9, 9, 9})),
                      large = full_box("stsz", words({0, 5, 2000000000, 2000000000, 2000000000,
                                                      2000000000, 2000000000})),
                      far = full_box("stss", words({1, 2000000000})),
                      single = full_box("stsc", words({1, 1, 1, 1})),
                      offsets = full_box("stco", words({5, 9000, 1 << 30, 2u << 30, 3u << 30, 9}));
    const std::string held = movie_of_tables("") + full_box("trun", u32(0));
    check("samples of 2 GB", movie_of_tables(stts + stss + single + offsets + large));
    check("falling sync samples", movie_of_tables(stts + full_box("stss", words(falling)) + stsc +
                                                  stco + full_box("stsz", words({0, kMany}))));
    check("stts", movie_of_tables(stss + stsc + stco + stsz + full_box("stts", words({kMany}))));
    check("stss", movie_of_tables(stts + stsc + stco + stsz + full_box("stss", words({kMany}))));
    check("stsc", movie_of_tables(stts + far + stco + stsz + full_box("stsc", words({170000000}))));
    check("stsd", movie_of_tables(u32(2000000000) + "stsd" + words({0, 1})));
    check("tfra", held + full_box("tfra", words({1, 0, 67000000})));
    check("tfra of 24 bits", held + full_box("tfra", words({1, 0x2a, 67000000})));
}

// The part of the formula that has a file size: one key frame and its configuration are held once,
// whatever is in them.
TEST_F(Faults, AKeyFrameIsHeldOnce) {
    constexpr size_t kLength = 16 << 20;
    const std::string lists = "01 1" + std::string(16, '1') + "00000 1";
    const std::string set = pps_nal({.extension = lists, .behind = std::string(kLength, 'x')});
    const std::string sample =
        with_length(set, 4) + with_length(pcm_slice_nal({}, {std::string(384, 'a')}), 4);
    const TrackSpec track = {.entries = {avc_entry(sps_nal({.profile_idc = 100}), pps_nal({}))},
                             .samples = {{sample}}};
    const std::string path = folder_.path("large.mp4");
    write_file(path, plain_film(track));
    EXPECT_EQ(run(path, "1"), 0);
    EXPECT_LT(g_memPeak, most_memory(0, 384) + static_cast<int64_t>(sample.size() + 128));
}
