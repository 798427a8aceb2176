// SPDX-License-Identifier: BSD-2-Clause
// The built program as its users run it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/jpeg_reader.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"

static const std::string kSample = KEYSTILL_MEDIA "sample.mp4";  // 640x360

using Args = std::vector<std::string>;
using Changes = std::vector<std::pair<int, std::string>>;

struct Cli : testing::Test {
    // The exit status of a run with these in place of arguments that work. prepare comes in front
    // of it, in its process.
    int run(const Changes& changes = {}, const std::function<void()>& prepare = nullptr) {
        Args words = arguments_;
        for (const auto& [position, text] : changes) words[position - 1] = text;
        CommandLine line("./some/keystill", words);
        const std::string out = folder_.path("out.txt"), err = folder_.path("err.txt");
        const int status = status_apart([&] {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            setenv("QEMU_ARGV0", line.argv()[0],
                   1);  // an emulated program starts by way of a script
            if (prepare) prepare();
            return execv(KEYSTILL_PROGRAM, line.argv());
        });
        EXPECT_EQ(read_file(out), "");
        EXPECT_EQ(read_file(err), usage_);
        return status;
    }

    TempFolder folder_;
    const std::string output_ = folder_.path("thumb.jpg");
    Args arguments_ = {kSample, output_, "320", "240", "85", "5", "10", "70"};
    std::string usage_;  // that runs have to print
};

TEST_F(Cli, PrintsTheUsageWhenArgumentsAreMissing) {
    usage_ =
        "\nUsage:  ./some/keystill  filenameIn  jpgFilenameOut  thumbWidth thumbHeight  "
        "jpegQuality (0-100)  #keyFramesRequested  clipOfstPercent  sizePercentile (0-100)\n"
        "\n"
        "where\n"
        "  clipOfstPercent is percent of clip duration at which keyframes are collected\n"
        "  sizePercentile of the keyframe bitstream sizes is the selected key frame\n"
        "  width=0 or height=0 sets the thumbnail size to be same as the picture size\n"
        "\n";
    while (!arguments_.empty()) {
        arguments_.pop_back();
        EXPECT_EQ(run(), 1);
    }
    EXPECT_FALSE(file_exists(output_));
}

TEST_F(Cli, WritesTheSameBytesEveryTimeOverAnythingThatWasThere) {
    write_file(output_, std::string(1'000'000, 'x'));
    ASSERT_EQ(run(), 0);
    const std::string first = read_file(output_), clip = folder_.path("Clip.MP4");
    EXPECT_LT(first.size(), 1'000'000u);
    EXPECT_EQ(read_jpeg(first).width, 320);
    EXPECT_EQ(read_jpeg(first).height, 180);
    write_file(clip, read_file(kSample));
    const utimbuf in_2040 = {2'208'988'800, 2'208'988'800};
    ASSERT_EQ(utime(clip.c_str(), &in_2040), 0);
    arguments_.push_back("ignored");
    ASSERT_EQ(run({{1, clip}}), 0);
    EXPECT_EQ(read_file(output_), first);
    EXPECT_EQ(run({{6, "89478484"}}), 0) << "24 bytes each are a block";
    EXPECT_EQ(run({{6, "89478485"}}), 1);

    const std::string piped = folder_.path("stdout");
    const auto to_file = [&] { dup2(open(piped.c_str(), O_CREAT | O_WRONLY, 0600), 1); };
    EXPECT_EQ(run({{2, "/dev/stdout"}}, to_file), 0);
    EXPECT_EQ(read_file(piped), first);
    for (const rlim_t size : {0, 1, 1000}) {
        const rlimit limit = {size, size};
        EXPECT_EQ(run({}, [&] { setrlimit(RLIMIT_FSIZE, &limit); }), 1) << size;
        EXPECT_EQ(read_file(output_), first.substr(0, size));
    }
}

TEST_F(Cli, FailsSilentlyAndLeavesAllFilesAlone) {
    const auto in = [&](const char* name) { return folder_.path(name); };
    const std::string clip = in("clip.mp4"), fifo = in("fifo.mp4"), bytes = read_file(kSample);
    mkdir(in("folder.mp4").c_str(), 0700);
    mkfifo(fifo.c_str(), 0600);
    write_file(in("empty.mp4"), "");
    write_file(in("text.mp4"), "this is not a video file, whatever its name says");
    for (const std::string& path : {clip, in("clip.avi"), in("secret.mp4")})
        write_file(path, bytes);
    write_file(output_, "old");
    ASSERT_EQ(link(clip.c_str(), in("hard.jpg").c_str()), 0);
    ASSERT_EQ(symlink(clip.c_str(), in("soft.jpg").c_str()), 0);
    const int watch = inotify_init1(IN_NONBLOCK);  // of a pipe that nobody writes into
    ASSERT_GE(inotify_add_watch(watch, fifo.c_str(), IN_OPEN), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const auto expect_failure = [&](int position, const std::string& text) {
        SCOPED_TRACE(text);
        EXPECT_EQ(run({{1, clip}, {position, text}}), 1);
        EXPECT_EQ(read_file(output_), "old");
        EXPECT_EQ(read_file(clip), bytes);
    };
    for (const char* name : {"none.mp4", "text.mp4", "clip.avi", "folder.mp4", "fifo.mp4",
                             "empty.mp4", "folder.mp4/x.mp4"}) {
        expect_failure(1, in(name));
    }
    for (const char* name : {"folder.mp4", "folder.mp4/", "none/out.jpg", "thumb.jpg/x.jpg",
                             "clip.mp4", "./clip.mp4", "hard.jpg", "soft.jpg"}) {
        expect_failure(2, in(name));
    }
    const std::string closed = "/proc/self/fd/" + std::to_string(ends[1]);
    for (const std::string& output : {std::string(), std::string("/dev/full"), closed}) {
        expect_failure(2, output);
    }
    expect_failure(3, "161");  // the tables of the arguments have the rest
    expect_failure(6, "2147483647");
    char event[sizeof(inotify_event) + 256];
    EXPECT_EQ(read(watch, event, sizeof event), -1) << "the pipe was opened";
    close(watch);
    close(ends[1]);

    chmod(in("").c_str(), 0755);
    chmod(in("secret.mp4").c_str(), 0);
    const auto become_nobody = [] {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(126);
    };
    EXPECT_EQ(run({{1, in("secret.mp4")}, {2, "/dev/null"}}, become_nobody), 1);
    EXPECT_EQ(run({{1, clip}, {2, in("new.jpg")}}, become_nobody), 1);
    EXPECT_EQ(run({{1, clip}, {2, "/dev/null"}}, become_nobody), 0);
    EXPECT_FALSE(file_exists(in("new.jpg")));
}
