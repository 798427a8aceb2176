// SPDX-License-Identifier: BSD-2-Clause
// The program as a whole: what comes out, what is said, and what is left behind.
#include "thumbnailer/run_thumbnailer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/box_builder.h"
#include "tests/support/jpeg_reader.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_folder.h"

const std::string kMedia = KEYSTILL_MEDIA;

static std::string png_size(const std::string& path) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return "no PNG";
    png_image_free(&image);
    return std::to_string(image.width) + 'x' + std::to_string(image.height);
}

// Runs the program with these words.
static int run_words(const std::vector<std::string>& words) {
    CommandLine line("keystill-thumbnailer", words);
    return run_thumbnailer(line.argc(), line.argv());
}

struct RunThumbnailer : testing::Test {
    RunThumbnailer() {
        setenv("TMPDIR", folder_.path("tmp").c_str(), 1);
        std::filesystem::create_directory(folder_.path("tmp"));
    }
    ~RunThumbnailer() override {
        unsetenv("TMPDIR");
        EXPECT_TRUE(std::filesystem::is_empty(folder_.path("tmp")));
    }

    // The exit status. Standard error is one line exactly when there is no picture.
    int run(const std::vector<std::string>& words) {
        testing::internal::CaptureStderr();
        const int status = run_words(words);
        said_ = testing::internal::GetCapturedStderr();
        const auto lines = std::count(said_.begin(), said_.end(), '\n');
        EXPECT_EQ(lines, status < 2 ? status : lines) << said_;
        return status;
    }
    int draw(const std::string& video, const std::string& output,
             const std::vector<std::string>& more = {}) {
        std::vector<std::string> words = {"-i", video, "-o", output};
        words.insert(words.end(), more.begin(), more.end());
        return run(words);
    }

    TempFolder folder_;
    std::string png_ = folder_.path("out.png"), said_;
};

TEST_F(RunThumbnailer, EveryClipGivesAPictureOfTheSizeThatIsAskedFor) {
    // clang-format off
    static const struct { const char *clip, *size; std::vector<std::string> options; } kCases[] = {
        {"audio_first.mp4", "96x64", {}}, {"cabac_8x8.mp4", "160x96", {}},
        {"cavlc_slices_crop.mp4", "146x90", {}}, {"fragmented.mp4", "112x64", {}},
        {"grey.mp4", "128x80", {}}, {"h263.3gp", "128x96", {}}, {"h263_annexes.3gp", "96x64", {}},
        {"index_last.mov", "112x64", {}}, {"mpeg4.mp4", "112x80", {}},
        {"mpeg4_interlaced_odd.mp4", "101x75", {}}, {"raw_blocks.mp4", "64x32", {}},
        {"sample.mp4", "640x360", {}}, {"sample.mp4", "640x360", {"-s", "1000"}},
        {"sample.mp4", "1000x563", {"-s", "1000", "--enlarge"}},
        {"sample.mp4", "99x99", {"-s", "99", "-a"}},
    };
    // clang-format on
    for (const auto& [clip, size, options] : kCases) {
        std::vector<std::string> words = {"-s", "0"};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_EQ(draw(kMedia + clip, png_, words), 0) << clip << said_;
        EXPECT_EQ(png_size(png_), size) << clip;
    }
    const std::string text = read_file(png_), clip = kMedia + "sample.mp4";
    EXPECT_NE(text.find("Thumb::URI"), std::string::npos);
    EXPECT_NE(text.find("Thumb::MTime"), std::string::npos);

    const std::string jpeg = folder_.path("out.jpg");
    ASSERT_EQ(draw(clip, jpeg, {"-s", "320x100", "-t", "0:03"}), 0);
    EXPECT_EQ(read_jpeg(read_file(jpeg)).width, 178);
    testing::internal::CaptureStdout();
    EXPECT_EQ(draw(clip, "-", {"-c", "jpeg"}), 0);
    fflush(stdout);
    EXPECT_EQ(read_jpeg(testing::internal::GetCapturedStdout()).width, 128);
}

TEST_F(RunThumbnailer, InflatesACompressedHeader) {
    const std::string movie = read_file(kMedia + "index_last.mov");
    const std::string header = movie.substr(movie.find("moov") - 4);
    uLongf length = compressBound(header.size());
    std::string packed(length, '\0');
    ASSERT_EQ(compress(reinterpret_cast<Bytef*>(packed.data()), &length,
                       reinterpret_cast<const Bytef*>(header.data()), header.size()),
              Z_OK);
    const std::string stored = u32(header.size()) + packed.substr(0, length);
    const std::string video = folder_.path("compressed.mov");
    write_file(video, movie.substr(0, movie.size() - header.size()) +
                          box("moov", box("cmov", box("dcom", "zlib") + box("cmvd", stored))));
    EXPECT_EQ(draw(video, png_), 0) << said_;
    EXPECT_EQ(png_size(png_), "112x64");
}

TEST_F(RunThumbnailer, NeverTouchesItsInput) {
    const std::string video = folder_.path("a.mp4");
    const std::string bytes = read_file(kMedia + "mpeg4.mp4");
    write_file(video, bytes);
    std::filesystem::create_hard_link(video, folder_.path("hard.mp4"));
    std::filesystem::create_symlink("a.mp4", folder_.path("soft.mp4"));
    for (const char* output : {"a.mp4", "hard.mp4", "soft.mp4"}) {
        EXPECT_EQ(draw(video, folder_.path(output)), 1) << output;
        EXPECT_EQ(read_file(video), bytes);
    }
    EXPECT_EQ(status_apart([&] {
                  dup2(open(video.c_str(), O_RDWR), STDOUT_FILENO);
                  return run_words({"-i", video, "-o", "-"});
              }),
              1);
    EXPECT_EQ(read_file(video), bytes);
}

TEST_F(RunThumbnailer, SaysWhyThereIsNoPictureAndLeavesTheOutput) {
    const std::string broken = folder_.path("broken.mp4");
    const std::string fifo = folder_.path("fifo.mp4");
    const std::string bytes = read_file(kMedia + "mpeg4.mp4");
    write_file(png_, "earlier");
    mkfifo(fifo.c_str(), 0600);
    write_file(folder_.path("empty.mp4"), "");
    for (const std::string& video :
         {folder_.path("none.mp4"), folder_.path("empty.mp4"), fifo, folder_.path("tmp"),
          std::string("/dev/zero"), std::string("/dev/tty")}) {
        EXPECT_EQ(draw(video, png_), 1) << video;
        EXPECT_EQ(read_file(png_), "earlier");
    }
    for (size_t length = 0; length < bytes.size(); length += bytes.size() / 40) {
        write_file(broken, bytes.substr(0, length));
        EXPECT_LT(draw(broken, png_, {"--fallback", "false"}), 2) << length;
    }
    EXPECT_EQ(draw(kMedia + "mpeg4.mp4", folder_.path("none/out.png")), 1);
    EXPECT_EQ(said_, "keystill-thumbnailer: The output cannot be written.\n");
    // Neither is the video taken for a closed standard output, nor the picture.
    EXPECT_EQ(status_apart([&] {
                  dup2(open(broken.c_str(), O_WRONLY | O_TRUNC), STDERR_FILENO);
                  close(STDOUT_FILENO);
                  return run_words({"-i", kMedia + "mpeg4.mp4", "-o", "-"});
              }),
              1);
    EXPECT_EQ(read_file(broken), said_);
    EXPECT_EQ(run({"\x1b[31m.mp4"}), 2);  // as "*" on a command line may give
    EXPECT_NE(said_.find("what is this for: \\x1b[31m.mp4\nusage:"), std::string::npos) << said_;
    // Nothing is left in the folder when it ends at a file size limit.
    EXPECT_EQ(status_apart([&] {
                  const rlimit low = {100, 100};
                  setrlimit(RLIMIT_FSIZE, &low);
                  return run_words({"-i", kMedia + "mpeg4.mp4", "-o", folder_.path("tmp/a.png")});
              }),
              1);
}

// Sanitizers want all addresses there are, and an emulator has its own.
#if KEYSTILL_HAS_SANDBOX && !defined(KEYSTILL_EMULATED)
TEST_F(RunThumbnailer, EndsOrderlyWhenMemoryIsShort) {
    int counts[2] = {};
    // From what the process has already, in steps smaller than what is asked for.
    for (rlim_t kibibytes = 0; kibibytes < 6000; kibibytes += 150) {
        const int status = status_apart([&] {
            long pages = 0;
            FILE* const statm = fopen("/proc/self/statm", "r");
            if (fscanf(statm, "%ld", &pages) != 1) return 9;
            fclose(statm);
            const rlim_t limit =
                static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE)) + (kibibytes << 10);
            const rlimit limits = {limit, limit};
            dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
            setrlimit(RLIMIT_AS, &limits);
            return run_words({"-i", kMedia + "sample.mp4", "-o", png_, "-s", "0"});
        });
        ASSERT_TRUE(status == 0 || status == 1) << kibibytes << ' ' << status;
        ++counts[status];
        EXPECT_EQ(std::filesystem::remove(png_), status == 0);
    }
    EXPECT_GT(counts[0], 0);
    EXPECT_GT(counts[1], 0);
}
#endif

TEST_F(RunThumbnailer, HandsOnlyOtherKindsOfFilesToOtherPrograms) {
    // Stands for another thumbnailer: copies a picture, when asked as it should be.
    const std::string picture = folder_.path("picture.png");
    const std::string script = folder_.path("other");
    ASSERT_EQ(draw(kMedia + "grey.mp4", picture), 0);
    write_file(script,
               "#!/bin/sh\necho noise; echo noise >&2\ntest \"$1\" = 100%% || exit 3\n"
               "test -f \"$2\" && test \"$4\" = 64 && cp \"" +
                   picture + "\" \"$3\"\n");
    chmod(script.c_str(), 0700);
    const std::string other = script + "  100%%%% %i %o %s";
    const std::string matroska = folder_.path("a b\n.mp4");
    write_file(matroska, std::string("\x1a\x45\xdf\xa3") + std::string(5000, 'm'));

    ASSERT_EQ(draw(matroska, png_, {"-s", "64", "--fallback", other}), 0) << said_;
    EXPECT_EQ(read_file(png_), read_file(picture));
    // The wrong kind of picture, half of one, none, a program that fails or is not there.
    EXPECT_EQ(draw(matroska, folder_.path("a.jpg"), {"-s", "64", "--fallback", other}), 1);
    EXPECT_EQ(draw(matroska, png_, {"-s", "65", "--fallback", other}), 1);
    for (const char* command : {"none", "true", "false", "/none/at/all", " ", "cp %i %o"}) {
        EXPECT_EQ(draw(matroska, png_, {"--fallback", command}), 1) << command;
    }
    EXPECT_EQ(read_file(png_), read_file(picture));
    // Damage is no other kind of file: nobody else is asked.
    const std::string broken = folder_.path("broken.mp4");
    write_file(broken, read_file(kMedia + "sample.mp4").substr(0, 500));
    EXPECT_EQ(draw(broken, png_, {"-s", "64", "--fallback", other}), 1);
    // The last one that is asked is named: a box that is no square is for the converter first.
    const std::string path = getenv("PATH");
    for (const char* name : {"bin/ffmpeg", "bin/ffmpegthumbnailer"}) {
        std::filesystem::create_directory(folder_.path("bin"));
        write_file(folder_.path(name), "#!/bin/sh\n");
        chmod(folder_.path(name).c_str(), 0700);
    }
    setenv("PATH", folder_.path("bin").c_str(), 1);
    EXPECT_EQ(draw(matroska, png_, {"-s", "64", "--fallback", "auto"}), 1);
    EXPECT_NE(said_.find(" ffmpeg makes no picture"), std::string::npos) << said_;
    EXPECT_EQ(draw(matroska, png_, {"-s", "64x48", "--fallback", "auto"}), 1);
    EXPECT_NE(said_.find(" ffmpegthumbnailer makes no picture"), std::string::npos) << said_;
    setenv("PATH", path.c_str(), 1);
}
