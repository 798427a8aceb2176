// SPDX-License-Identifier: BSD-2-Clause
// The program under faults of its surroundings and on hostile files: it ends with 0 or 1, soon, and
// within the memory that README.md states.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"
#include "tool/run_keystill.h"

static const std::string kProgram = KEYSTILL_PROGRAM;
static const std::string kMedia = KEYSTILL_MEDIA;
static const std::string kClip = kMedia + "cabac_8x8.mp4";
static constexpr int kSignalled = 1000;
static constexpr int64_t kMiB = 1 << 20;
// Of the largest H.264 picture, 65535 macroblocks.
static constexpr int64_t kMostPicture = 65535 * 384;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr bool kIsInstrumented = true;
#else
static constexpr bool kIsInstrumented = false;
#endif

// The formula of README.md, for pictures and thumbnails of so many bytes.
static int64_t most_memory(int64_t file_size, int64_t picture, int64_t thumbnail) {
    return 4 * kMiB + 8 * file_size + 2 * (picture + thumbnail);
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
    return __real_pread64(descriptor, buffer, length < 1 ? length : 1, offset);
}
}

struct Ended {
    int status;
    int64_t rss;  // bytes at most, or this process's own if that is more
    double seconds;
};

class Faults : public testing::Test {
 protected:
    std::vector<const char*> arguments(const std::string& input, const std::string& output) {
        return {"keystill", input.c_str(), output.c_str(), "160",  "120", "85",
                count_,     "0",           "50",           nullptr};
    }

    // Runs the program; in_child comes in front of it.
    Ended run(
        const std::string& input, const std::string& output,
        const std::function<void()>& in_child = [] {}) {
        const std::vector<const char*> argv = arguments(input, output);
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = fork();
        if (child == 0) {
            in_child();
            execv(kProgram.c_str(), const_cast<char* const*>(argv.data()));
            _exit(127);
        }
        int status = 0;
        rusage usage = {};
        wait4(child, &status, 0, &usage);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        return {WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status),
                int64_t{usage.ru_maxrss} * 1024, seconds.count()};
    }
    int status_of(
        const std::string& input, const std::string& output,
        const std::function<void()>& in_child = [] {}) {
        return run(input, output, in_child).status;
    }

    int run_here(const std::string& input) {
        const std::vector<const char*> argv = arguments(input, output_);
        unlink(output_.c_str());
        const int status = run_keystill(static_cast<int>(argv.size()) - 1, argv.data());
        EXPECT_EQ(g_memUsed, 0);
        EXPECT_EQ(file_exists(output_), status == 0);
        return status;
    }

    // Runs on a hostile file within the limits.
    int run_hostile(const std::string& input, int64_t file_size, int64_t picture = kMiB) {
        const Ended done = run(input, output_);
        EXPECT_LT(done.status, 2);
        EXPECT_LT(done.seconds, kIsInstrumented ? 20 : 2);
        if (!kIsInstrumented) {
            EXPECT_LT(done.rss, most_memory(file_size, picture, kThumbnail) + kGTest);
        }
        return done.status;
    }

    static constexpr int64_t kThumbnail = 160 * 128 * 3 / 2;
    static constexpr int64_t kGTest = 8 * kMiB;  // what a forked test weighs
    TempFolder folder_;
    const std::string output_ = folder_.path("out.jpg");
    const char* count_ = "5";
};

static void limit_file_size(rlim_t bytes) {
    const rlimit limit = {bytes, bytes};
    setrlimit(RLIMIT_FSIZE, &limit);
}

static void become_nobody() {
    if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(126);
}

TEST_F(Faults, OutputsThatCannotBeWrittenGiveStatus1) {
    EXPECT_EQ(status_of(kClip, output_), 0);
    const std::string whole = read_file(output_);
    for (const rlim_t size : {0, 1, 1000}) {
        EXPECT_EQ(status_of(kClip, output_, [size] { limit_file_size(size); }), 1) << size;
        EXPECT_EQ(read_file(output_), whole.substr(0, size));
    }
    mkdir(folder_.path("folder").c_str(), 0700);
    for (const char* const name : {"folder", "folder/", "none/out.jpg", "out.jpg/out.jpg"}) {
        EXPECT_EQ(status_of(kClip, folder_.path(name)), 1) << name;
    }
    chmod(folder_.path("").c_str(), 0755);
    write_file(folder_.path("clip.mp4"), read_file(kClip));
    EXPECT_EQ(status_of(folder_.path("clip.mp4"), folder_.path("new.jpg"), become_nobody), 1);
    EXPECT_FALSE(file_exists(folder_.path("new.jpg")));
}

TEST_F(Faults, OutputGoesToADeviceOrPipe) {
    EXPECT_EQ(status_of(kClip, output_), 0);
    const std::string whole = read_file(output_);
    const auto to_file = [this] {
        dup2(open(folder_.path("stdout").c_str(), O_CREAT | O_WRONLY, 0600), STDOUT_FILENO);
    };
    EXPECT_EQ(status_of(kClip, "/dev/stdout", to_file), 0);
    EXPECT_EQ(read_file(folder_.path("stdout")), whole);
    EXPECT_EQ(status_of(kClip, "/dev/null"), 0);
    EXPECT_EQ(status_of(kClip, "/dev/full"), 1);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const std::string path = "/proc/self/fd/" + std::to_string(ends[1]);
    EXPECT_EQ(status_of(kClip, path), 1);
    close(ends[1]);
}

TEST_F(Faults, InputsThatAreNoReadableFilesGiveStatus1) {
    mkdir(folder_.path("folder.mp4").c_str(), 0700);
    mkfifo(folder_.path("fifo.mp4").c_str(), 0600);
    write_file(folder_.path("empty.mp4"), "");
    write_file(folder_.path("secret.mp4"), read_file(kClip));
    chmod(folder_.path("secret.mp4").c_str(), 0);
    for (const char* const name : {"folder.mp4", "fifo.mp4", "empty.mp4", "folder.mp4/x.mp4"}) {
        EXPECT_EQ(status_of(folder_.path(name), output_), 1) << name;
    }
    chmod(folder_.path("").c_str(), 0755);
    EXPECT_EQ(status_of(folder_.path("secret.mp4"), "/dev/null", become_nobody), 1);
    EXPECT_FALSE(file_exists(output_));
}

TEST_F(Faults, ReadsThatFailOrComeShortAreSurvived) {
    for (const char* const name : {"cabac_8x8.mp4", "fragmented.mp4", "mpeg4.mp4", "h263.3gp"}) {
        SCOPED_TRACE(name);
        g_reads = {0, g_reads.kError, 0};
        EXPECT_EQ(run_here(kMedia + name), 0);
        const int calls = g_reads.calls;
        ASSERT_GT(calls, 2);
        const std::string whole = read_file(output_);
        g_reads = {1, g_reads.kOneByte, 0};
        EXPECT_EQ(run_here(kMedia + name), 0);
        EXPECT_EQ(read_file(output_), whole);
        for (int n = 1; n <= calls; ++n) {
            for (const auto kind : {g_reads.kError, g_reads.kEnd}) {
                g_reads = {n, kind, 0};
                run_here(kMedia + name);
            }
        }
    }
    g_reads = {};
}

TEST_F(Faults, IndexBehindFourGiBIsFound) {
    const std::string clip = read_file(kMedia + "index_last.mov");
    const size_t movie = clip.find("moov") - 4;
    const std::string path = folder_.path("large.mov");
    constexpr int64_t kHole = INT64_C(5) << 30;
    write_file(path, clip.substr(0, movie) + u32(1) + "free" + u64(kHole));
    if (truncate(path.c_str(), static_cast<off_t>(movie) + kHole) != 0) GTEST_SKIP();
    const int file = open(path.c_str(), O_WRONLY | O_APPEND);
    const std::string rest = clip.substr(movie);
    ASSERT_EQ(write(file, rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
    close(file);
    EXPECT_EQ(run_hostile(path, static_cast<int64_t>(clip.size())), 0);
    const std::string got = read_file(output_);
    EXPECT_EQ(status_of(kMedia + "index_last.mov", output_), 0);
    EXPECT_EQ(got, read_file(output_));
}

// Headers of boxes in each other, the outermost first.
static std::string nested(const char* type, uint32_t depth) {
    std::string out;
    for (; depth > 0; --depth) out += u32(depth * 8) + type;
    return out;
}

// A movie of that many key frames, all of them the same bytes of the file.
static std::string overlapping_movie(uint32_t key_frames, uint32_t set_length, uint32_t size) {
    MovieSpec spec;
    spec.entry = avc_entry(std::string(set_length, 's'), "p");
    for (uint32_t i = 1; i <= key_frames; ++i) {
        spec.samples.emplace_back();
        spec.sync.push_back(i);
    }
    spec.samples_per_chunk = 1000;
    std::string movie = movie_file(spec);
    const size_t sizes = movie.find("stsz") + 16;
    for (uint32_t i = 0; i < key_frames; ++i) movie.replace(sizes + 4 * i, 4, u32(size));
    return movie + zeros(size);
}

// A movie with a table of that type that declares four billion entries.
static std::string huge_count(const char* type, size_t count_offset) {
    std::string movie = read_file(kClip);
    movie.replace(movie.find(type) + count_offset, 4, u32(0xffffffff));
    return movie;
}

static std::string free_space() {
    std::string out;
    for (int i = 0; i < 100000; ++i) out += box("free", "");
    return out;
}

// Fragments looked up in the same spot, whose boxes lie further apart than the buffer reaches.
static std::string scattered_fragment() {
    const std::string clip = read_file(kMedia + "fragmented.mp4");
    const size_t start = clip.find("moof") - 4;
    std::string boxes, entries;
    for (int i = 0; i < 1000; ++i) boxes += box("free", zeros(4200));
    for (uint32_t i = 0; i < 500000; ++i) {
        entries += words({i, static_cast<uint32_t>(start)}) + "\1\1\1";
    }
    const std::string run = full_box("tfhd", u32(1)) + full_box("trun", words({1, 64}));
    return clip.substr(0, start) + box("moof", boxes + box("traf", run)) +
           box("mfra", full_box("tfra", words({1, 0, 500000}) + entries));
}

// Makes the file in a process of its own: this one's memory counts for the program that it forks.
static int64_t write_aside(const std::string& path, const std::function<std::string()>& make) {
    const pid_t child = fork();
    if (child == 0) {
        write_file(path, make());
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_size;
}

TEST_F(Faults, HostileFilesCostLittleTimeAndMemory) {
    static const std::pair<const char*, std::function<std::string()>> kFiles[] = {
        {"nested movies", [] { return nested("moov", 100000); }},
        {"nested user data", [] { return nested("udta", 100000); }},
        {"boxes up to the end", [] { return zeros(4) + "moov" + zeros(99999); }},
        {"boxes in place", [] { return u32(1) + "free" + zeros(800000); }},
        {"free space", free_space},
        {"overlapping key frames", [] { return overlapping_movie(100000, 60000, 1000000); }},
        {"tiny key frames", [] { return overlapping_movie(600000, 1, 1); }},
        {"scattered fragment", scattered_fragment},
        {"stts", [] { return huge_count("stts", 8); }},
        {"stss", [] { return huge_count("stss", 8); }},
        {"stsc", [] { return huge_count("stsc", 8); }},
        {"stsz", [] { return huge_count("stsz", 12); }},
        {"stco", [] { return huge_count("stco", 8); }},
    };
    count_ = "1000000";
    for (const auto& [name, make] : kFiles) {
        SCOPED_TRACE(name);
        const std::string path = folder_.path("x.mp4");
        run_hostile(path, write_aside(path, make));
    }
}

// Flips, sets, copies, removes and inserts bytes, in half of the mutants those of the index alone.
static std::string mutate(std::string clip, uint32_t seed) {
    std::mt19937 random(seed);
    const bool is_index = seed & 1;
    const size_t index = std::min(clip.find("moov"), clip.find("moof"));
    static const char* const kNumbers[] = {"\0\0\0\0",   "\xff\xff\xff\xff", "\x7f\xff\xff\xff",
                                           "\x80\0\0\0", "\0\0\0\1",         "\0\0\xff\xff"};
    for (uint32_t i = 1 + random() % 8; i > 0; --i) {
        const size_t from = is_index ? index : 0;
        const size_t range = is_index ? std::min<size_t>(clip.size() - from, 1200) : clip.size();
        const size_t at = from + random() % range;
        switch (random() % 6) {
            case 0:
                clip[at] = static_cast<char>(clip[at] ^ 1 << random() % 8);
                break;
            case 1:
                clip[at] = static_cast<char>(random());
                break;
            case 2:
                clip.replace(at, 4, kNumbers[random() % 6], 4);
                break;
            case 3:
                clip.erase(at, random() % 16);
                break;
            case 4:
                clip.insert(at, clip.substr(random() % clip.size(), random() % 64));
                break;
            default:
                if (random() % 16 == 0) clip.resize(at);
        }
        if (clip.size() < index + 8) break;
    }
    return clip;
}

TEST_F(Faults, MutantsOfRealFilesCostLittleTimeAndMemory) {
    static const char* const kClips[] = {
        "audio_first.mp4", "cabac_8x8.mp4",  "cavlc_slices_crop.mp4",   "fragmented.mp4",
        "grey.mp4",        "h263.3gp",       "h263_annexes.3gp",        "index_last.mov",
        "mpeg4.mp4",       "raw_blocks.mp4", "mpeg4_interlaced_odd.mp4"};
    std::vector<std::string> clips;
    for (const char* const name : kClips) clips.push_back(read_file(kMedia + name));
    const std::string path = folder_.path("mutant.mp4");
    int written = 0;
    for (uint32_t seed = 0; seed < 10000; ++seed) {
        SCOPED_TRACE(seed);
        const std::string mutant = mutate(clips[seed % clips.size()], seed);
        write_file(path, mutant);
        const auto start = std::chrono::steady_clock::now();
        written += run_here(path) == 0;
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        ASSERT_LT(seconds.count(), kIsInstrumented ? 20 : 2);
        ASSERT_LT(g_memPeak,
                  most_memory(static_cast<int64_t>(mutant.size()), kMostPicture, kThumbnail));
    }
    EXPECT_GT(written, 100);  // the mutants are close to real files
    EXPECT_LT(written, 9900);
}
