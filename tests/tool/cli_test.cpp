// SPDX-License-Identifier: BSD-2-Clause
// The built program as its users run it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/jpeg_reader.h"
#include "tests/support/temp_folder.h"

static const std::string kSample = KEYSTILL_MEDIA "sample.mp4";  // 640x360

using Args = std::vector<std::string>;

class Cli : public testing::Test {
 protected:
    // The exit status of a run that has to say this on standard error, and else nothing. prepare
    // comes in front of it, in its process.
    int run(
        Args args, const std::function<void()>& prepare = [] {}, const std::string& want_err = "") {
        std::vector<char*> argv = {name_.data()};
        for (std::string& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        const std::string out = folder_.path("out.txt"), err = folder_.path("err.txt");
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            setenv("QEMU_ARGV0", argv[0], 1);  // an emulated program starts behind a script
            prepare();
            execv(KEYSTILL_PROGRAM, argv.data());
            _exit(127);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(read_file(out), "");
        EXPECT_EQ(read_file(err), want_err);
        EXPECT_TRUE(WIFEXITED(status));
        return WEXITSTATUS(status);
    }

    // Arguments that work, with the given ones in place of theirs.
    Args arguments(std::vector<std::pair<int, std::string>> changes = {}) {
        Args args = {kSample, output_, "320", "240", "85", "5", "10", "70"};
        for (const auto& [position, text] : changes) args[position - 1] = text;
        return args;
    }

    TempFolder folder_;
    std::string output_ = folder_.path("thumb.jpg"), name_ = "./some/keystill";
};

TEST_F(Cli, PrintsTheUsageWhenArgumentsAreMissing) {
    const std::string want =
        "\nUsage:  ./some/keystill  filenameIn  jpgFilenameOut  thumbWidth thumbHeight  "
        "jpegQuality (0-100)  #keyFramesRequested  clipOfstPercent  sizePercentile (0-100)\n"
        "\n"
        "where\n"
        "  clipOfstPercent is percent of clip duration at which keyframes are collected\n"
        "  sizePercentile of the keyframe bitstream sizes is the selected key frame\n"
        "  width=0 or height=0 sets the thumbnail size to be same as the picture size\n"
        "\n";
    for (size_t count = 0; count < 8; ++count) {
        Args args = arguments();
        args.resize(count);
        EXPECT_EQ(run(
                      args, [] {}, want),
                  1);
    }
    EXPECT_FALSE(file_exists(output_));
}

TEST_F(Cli, WritesAThumbnailOfTheFittedSize) {
    static const int kCases[][4] = {{320, 240, 320, 180}, {320, 0, 640, 360}, {65534, 2, 3, 2}};
    for (const auto& [width, height, want_width, want_height] : kCases) {
        ASSERT_EQ(run(arguments({{3, std::to_string(width)}, {4, std::to_string(height)}})), 0);
        const JpegImage image = read_jpeg(read_file(output_));
        EXPECT_EQ(image.width, want_width);
        EXPECT_EQ(image.height, want_height);
    }
}

TEST_F(Cli, WritesTheSameBytesEveryTimeOverAnythingThatWasThere) {
    write_file(output_, std::string(1'000'000, 'x'));
    ASSERT_EQ(run(arguments()), 0);
    const std::string first = read_file(output_), clip = folder_.path("Clip.MP4");
    EXPECT_LT(first.size(), 1'000'000u);
    write_file(clip, read_file(kSample));
    const utimbuf in_2040 = {2'208'988'800, 2'208'988'800};
    ASSERT_EQ(utime(clip.c_str(), &in_2040), 0);
    Args with_more = arguments({{1, clip}});
    with_more.push_back("ignored");
    ASSERT_EQ(run(with_more), 0);
    EXPECT_EQ(read_file(output_), first);
    EXPECT_EQ(run(arguments({{6, "89478484"}})), 0) << "24 bytes each are a block";
    EXPECT_EQ(run(arguments({{6, "89478485"}})), 1);

    const std::string piped = folder_.path("stdout");
    const auto to_file = [&] { dup2(open(piped.c_str(), O_CREAT | O_WRONLY, 0600), 1); };
    EXPECT_EQ(run(arguments({{2, "/dev/stdout"}}), to_file), 0);
    EXPECT_EQ(read_file(piped), first);
    for (const rlim_t size : {0, 1, 1000}) {
        const rlimit limit = {size, size};
        EXPECT_EQ(run(arguments(), [&] { setrlimit(RLIMIT_FSIZE, &limit); }), 1) << size;
        EXPECT_EQ(read_file(output_), first.substr(0, size));
    }
}

TEST_F(Cli, FailsSilentlyAndLeavesTheOutputAlone) {
    mkdir(folder_.path("folder.mp4").c_str(), 0700);
    mkfifo(folder_.path("fifo.mp4").c_str(), 0600);
    write_file(folder_.path("empty.mp4"), "");
    write_file(folder_.path("clip.avi"), read_file(kSample));
    write_file(folder_.path("text.mp4"), "this is not a video file, whatever its name says");
    write_file(output_, "old");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    // The tables of the arguments have the rest.
    // clang-format off
    const std::pair<int, std::string> kChanges[] = {
        {1, "none.mp4"}, {1, "text.mp4"}, {1, "clip.avi"}, {1, "folder.mp4"}, {1, "fifo.mp4"},
        {1, "empty.mp4"}, {1, "folder.mp4/x.mp4"}, {2, ""}, {2, "folder.mp4"}, {2, "folder.mp4/"},
        {2, "none/out.jpg"}, {2, "thumb.jpg/x.jpg"}, {2, "/dev/full"}, {3, "161"},
        {6, "2147483647"}, {2, "/proc/self/fd/" + std::to_string(ends[1])}};
    // clang-format on
    for (const auto& [position, text] : kChanges) {
        const bool is_name = position < 3 && !text.empty() && text[0] != '/';
        EXPECT_EQ(run(arguments({{position, is_name ? folder_.path(text) : text}})), 1) << text;
        EXPECT_EQ(read_file(output_), "old") << text;
    }
    close(ends[1]);
}

TEST_F(Cli, SparesTheVideoUnderAnyOfItsNames) {
    const std::string clip = folder_.path("clip.mp4"), hard = folder_.path("hard.jpg"),
                      soft = folder_.path("soft.jpg");
    const std::string bytes = read_file(kSample);
    write_file(clip, bytes);
    ASSERT_EQ(link(clip.c_str(), hard.c_str()), 0);
    ASSERT_EQ(symlink(clip.c_str(), soft.c_str()), 0);
    for (const std::string& output : {clip, hard, soft, folder_.path("./clip.mp4")}) {
        EXPECT_EQ(run(arguments({{1, clip}, {2, output}})), 1) << output;
        EXPECT_EQ(read_file(clip), bytes) << output;
    }
}

TEST_F(Cli, DoesNotOpenWhatIsNoRegularFile) {
    const std::string fifo = folder_.path("fifo.mp4");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, fifo.c_str(), IN_OPEN), 0);
    EXPECT_EQ(run(arguments({{1, fifo}})), 1);
    char event[sizeof(inotify_event) + 256];
    EXPECT_EQ(read(watch, event, sizeof event), -1);
    close(watch);
}

TEST_F(Cli, FailsWithoutPermission) {
    chmod(folder_.path("").c_str(), 0755);
    const std::string secret = folder_.path("secret.mp4"), open_clip = folder_.path("clip.mp4");
    for (const std::string& path : {secret, open_clip}) write_file(path, read_file(kSample));
    chmod(secret.c_str(), 0);
    const auto become_nobody = [] {
        if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(126);
    };
    EXPECT_EQ(run(arguments({{1, secret}, {2, "/dev/null"}}), become_nobody), 1);
    EXPECT_EQ(run(arguments({{1, open_clip}}), become_nobody), 1);
    EXPECT_EQ(run(arguments({{1, open_clip}, {2, "/dev/null"}}), become_nobody), 0);
    EXPECT_FALSE(file_exists(output_));
}
