// SPDX-License-Identifier: BSD-2-Clause
// The built program as its users run it, and the same run within this process to watch its memory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/failing_malloc.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/temp_folder.h"
#include "tool/run_keystill.h"

static const std::string kProgram = KEYSTILL_PROGRAM;
static const std::string kMedia = KEYSTILL_MEDIA;
static const std::string kSample = kMedia + "sample.mp4";  // 640x360
// One clip for every way through the container reader and the decoders.
static const char* const kClips[] = {"sample.mp4", "fragmented.mp4", "mpeg4.mp4", "h263.3gp"};

static std::vector<const char*> pointers(const char* name, const std::vector<std::string>& args) {
    std::vector<const char*> argv = {name};
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    return argv;
}

class Cli : public testing::Test {
 protected:
    // The exit status of a run that has to say this on standard error, and else nothing.
    int run(const std::vector<std::string>& args, const std::string& want_err = "",
            const char* name = "keystill") {
        const std::vector<const char*> argv = pointers(name, args);
        const std::string out = folder_.path("out.txt"), err = folder_.path("err.txt");
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
            execv(kProgram.c_str(), const_cast<char* const*>(argv.data()));
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
    std::vector<std::string> arguments(std::vector<std::pair<int, std::string>> changes = {}) {
        std::vector<std::string> args = {kSample, output_, "320", "240", "85", "5", "10", "70"};
        for (const auto& [position, text] : changes) args[position - 1] = text;
        return args;
    }

    int run_here(const std::string& input) {
        const std::vector<std::string> args = arguments({{1, input}});
        const int status = run_keystill(9, pointers("keystill", args).data());
        EXPECT_EQ(g_memUsed, 0);
        return status;
    }

    TempFolder folder_;
    std::string output_ = folder_.path("thumb.jpg");
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
    std::vector<std::string> args = arguments();
    while (!args.empty()) {
        args.pop_back();
        EXPECT_EQ(run(args, want, "./some/keystill"), 1);
    }
    EXPECT_FALSE(file_exists(output_));
}

TEST_F(Cli, WritesAThumbnailOfTheFittedSize) {
    static const struct {
        const char *width, *height;
        int want_width, want_height;
    } kCases[] = {{"320", "240", 320, 180}, {"320", "0", 640, 360}, {"65534", "2", 3, 2}};
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.width);
        ASSERT_EQ(run(arguments({{3, c.width}, {4, c.height}})), 0);
        const JpegImage image = read_jpeg(read_file(output_));
        EXPECT_EQ(image.width, c.want_width);
        EXPECT_EQ(image.height, c.want_height);
        EXPECT_TRUE(image.is_baseline_420_jfif);
    }
}

TEST_F(Cli, WritesTheSameBytesEveryTimeOverAnythingThatWasThere) {
    write_file(output_, std::string(1'000'000, 'x'));
    ASSERT_EQ(run(arguments()), 0);
    const std::string first = read_file(output_);
    EXPECT_LT(first.size(), 1'000'000u);
    const std::string clip = folder_.path("Clip.MP4");
    write_file(clip, read_file(kSample));
    std::vector<std::string> with_more = arguments({{1, clip}, {2, clip}});
    with_more.push_back("ignored");
    ASSERT_EQ(run(with_more), 0);
    EXPECT_EQ(read_file(clip), first);
}

TEST_F(Cli, FailsSilentlyAndLeavesTheOutputAlone) {
    write_file(folder_.path("clip.avi"), read_file(kSample));
    write_file(folder_.path("text.mp4"), "this is not a video file, whatever its name says");
    write_file(output_, "old");
    // The tables of the arguments have the rest.
    const std::pair<int, std::string> kChanges[] = {{1, folder_.path("none.mp4")},
                                                    {1, folder_.path("text.mp4")},
                                                    {1, folder_.path("clip.avi")},
                                                    {3, "161"},
                                                    {2, ""},
                                                    {6, "2147483647"}};
    for (const auto& change : kChanges) {
        EXPECT_EQ(run(arguments({change})), 1) << change.first << " " << change.second;
        EXPECT_EQ(read_file(output_), "old") << change.first << " " << change.second;
    }
}

TEST_F(Cli, FailsCleanlyWhenAnyAllocationFails) {
    for (const char* const name : kClips) {
        int n = 0;
        do {
            SCOPED_TRACE(testing::Message() << name << " " << n);
            unlink(output_.c_str());
            fail_allocation(++n);
            const int status = run_here(kMedia + name);
            EXPECT_EQ(file_exists(output_), status == 0);
            EXPECT_TRUE(status == 0 || has_allocation_failed());
        } while (has_allocation_failed());
        fail_allocation(0);
        EXPECT_GT(n, 10) << name;
    }
}
