// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/output_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <vector>

#include "tests/support/temp_folder.h"
#include "thumbnailer/picture_check.h"

const std::vector<uint8_t> kBytes(100000, 'x');
const std::string kText(kBytes.begin(), kBytes.end());

static struct stat status_of(const std::string& path) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    return status;
}

static ptrdiff_t files_in(const TempFolder& folder) {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator(folder.path("")), fs::directory_iterator());
}

TEST(OutputFile, ReplacesFilesAndFillsEmptyOnesAndLinks) {
    TempFolder folder;
    const std::string path = folder.path("a.png"), empty = folder.path("empty.png");
    write_file(path, "earlier");
    write_file(empty, "");
    chmod(path.c_str(), 04640);
    const int reader = open(path.c_str(), O_RDONLY);
    const ino_t before = status_of(empty).st_ino;  // somebody may hold it open
    ASSERT_TRUE(write_output(path, kBytes));
    ASSERT_TRUE(write_output(empty, kBytes));
    EXPECT_EQ(read_file(path), kText);
    EXPECT_EQ(read_file(empty), kText);
    EXPECT_EQ(status_of(path).st_mode & 07777, 0640u);
    EXPECT_EQ(status_of(empty).st_ino, before);
    char old[8] = {};
    EXPECT_EQ(read(reader, old, 7), 7);  // whoever had it open still has the earlier one
    EXPECT_STREQ(old, "earlier");
    close(reader);
    EXPECT_EQ(files_in(folder), 2);

    const mode_t mask = umask(027);
    ASSERT_TRUE(write_output(folder.path("new.png"), kBytes));
    umask(mask);
    EXPECT_EQ(status_of(folder.path("new.png")).st_mode & 0777, 0640u);
    std::filesystem::create_symlink("new.png", folder.path("link.png"));
    std::filesystem::create_symlink("other.png", folder.path("dangling.png"));
    for (const char* name : {"link.png", "dangling.png"}) {
        ASSERT_TRUE(write_output(folder.path(name), std::vector<uint8_t>{'m'})) << name;
        EXPECT_TRUE(S_ISLNK(status_of(folder.path(name)).st_mode));
        EXPECT_EQ(read_file(folder.path(name)), "m");
    }
    EXPECT_TRUE(write_output("/dev/null", kBytes));
}

TEST(OutputFile, AFailureLeavesWhatWasThere) {
    TempFolder folder;
    const std::string path = folder.path("a.png"), empty = folder.path("empty.png");
    write_file(path, "earlier");
    write_file(empty, "");
    signal(SIGXFSZ, SIG_IGN);  // as the program does
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit low = {5000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    for (const std::string& output : {path, empty, folder.path("new.png"), folder.path(""),
                                      folder.path("none/a.png"), std::string("/dev/full")}) {
        EXPECT_FALSE(write_output(output, kBytes)) << output;
    }
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_file(path), "earlier");
    EXPECT_EQ(read_file(empty), "");
    EXPECT_EQ(files_in(folder), 2);
}

TEST(PictureCheck, KnowsWholeFiles) {
    const std::string png("\x89PNG\r\n\x1a\n....\0\0\0\0IEND\xae\x42\x60\x82", 24);
    const std::string jpeg = "\xff\xd8\xff...\xff\xd9";
    for (const PictureFormat format : {PictureFormat::kPng, PictureFormat::kJpeg}) {
        for (const std::string& file : {png, jpeg}) {
            for (size_t length = 0; length <= file.size(); ++length) {
                const bool is_whole =
                    file.size() == length && (file == png) == (format == PictureFormat::kPng);
                const auto* const bytes = reinterpret_cast<const uint8_t*>(file.data());
                EXPECT_EQ(is_whole_picture({bytes, length}, format), is_whole) << length;
            }
        }
    }
}
