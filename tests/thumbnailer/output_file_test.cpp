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

namespace {

const std::vector<uint8_t> kBytes(100000, 'x');
const std::string kText(kBytes.begin(), kBytes.end());

struct stat status_of(const std::string& path) {
    struct stat status = {};
    lstat(path.c_str(), &status);
    return status;
}

ptrdiff_t files_in(const TempFolder& folder) {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator(folder.path("")), fs::directory_iterator());
}

TEST(OutputFile, ReplacesAFileInOneStep) {
    TempFolder folder;
    const std::string path = folder.path("a.png");
    write_file(path, "earlier");
    chmod(path.c_str(), 0640);
    const int reader = open(path.c_str(), O_RDONLY);
    ASSERT_TRUE(write_output(path, kBytes));
    EXPECT_EQ(read_file(path), kText);
    EXPECT_EQ(status_of(path).st_mode & 0777, 0640u);
    char old[8] = {};
    EXPECT_EQ(read(reader, old, 7), 7);  // whoever had it open still has the earlier one
    EXPECT_STREQ(old, "earlier");
    close(reader);
    EXPECT_EQ(files_in(folder), 1);
}

TEST(OutputFile, FillsAnEmptyFileThatSomebodyHoldsOpen) {
    TempFolder folder;
    const std::string path = folder.path("a.png");
    write_file(path, "");
    const ino_t before = status_of(path).st_ino;
    ASSERT_TRUE(write_output(path, kBytes));
    EXPECT_EQ(status_of(path).st_ino, before);
    EXPECT_EQ(read_file(path), kText);
}

TEST(OutputFile, NewFilesAndLinks) {
    TempFolder folder;
    const mode_t mask = umask(027);
    ASSERT_TRUE(write_output(folder.path("new.png"), kBytes));
    umask(mask);
    EXPECT_EQ(status_of(folder.path("new.png")).st_mode & 0777, 0640u);

    std::filesystem::create_symlink("new.png", folder.path("link.png"));
    std::filesystem::create_symlink("other.png", folder.path("dangling.png"));
    const std::vector<uint8_t> more = {'m'};
    for (const char* name : {"link.png", "dangling.png"}) {
        ASSERT_TRUE(write_output(folder.path(name), more)) << name;
        EXPECT_TRUE(S_ISLNK(status_of(folder.path(name)).st_mode));
        EXPECT_EQ(read_file(folder.path(name)), "m");
    }
    EXPECT_TRUE(write_output("/dev/null", kBytes));
}

TEST(OutputFile, AFailureLeavesWhatWasThere) {
    TempFolder folder;
    const std::string path = folder.path("a.png");
    const std::string empty = folder.path("empty.png");
    EXPECT_FALSE(write_output(folder.path("none/a.png"), kBytes));
    EXPECT_FALSE(write_output(folder.path(""), kBytes));
    EXPECT_FALSE(write_output("/dev/full", kBytes));
    write_file(path, "earlier");
    write_file(empty, "");
    signal(SIGXFSZ, SIG_IGN);
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit low = {5000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_FALSE(write_output(path, kBytes));
    EXPECT_FALSE(write_output(empty, kBytes));
    EXPECT_FALSE(write_output(folder.path("new.png"), kBytes));
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_file(path), "earlier");
    EXPECT_EQ(read_file(empty), "");
    EXPECT_EQ(files_in(folder), 2);
}

TEST(PictureCheck, KnowsWholeFiles) {
    const std::string png("\x89PNG\r\n\x1a\n....\0\0\0\0IEND\xae\x42\x60\x82", 24);
    const std::string jpeg = "\xff\xd8\xff...\xff\xd9";
    const auto is_whole = [](const std::string& text, PictureFormat format) {
        return is_whole_picture({reinterpret_cast<const uint8_t*>(text.data()), text.size()},
                                format);
    };
    EXPECT_TRUE(is_whole(png, PictureFormat::kPng));
    EXPECT_TRUE(is_whole(jpeg, PictureFormat::kJpeg));
    EXPECT_FALSE(is_whole(png, PictureFormat::kJpeg));
    EXPECT_FALSE(is_whole(jpeg, PictureFormat::kPng));
    for (size_t length = 0; length < png.size(); ++length) {
        EXPECT_FALSE(is_whole(png.substr(0, length), PictureFormat::kPng));
        EXPECT_FALSE(
            is_whole(jpeg.substr(0, std::min(length, jpeg.size() - 1)), PictureFormat::kJpeg));
    }
}

}  // namespace
