// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/buffered_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "runtime/accounted_memory.h"
#include "tests/support/temp_folder.h"

class BufferedFileTest : public testing::Test {
 protected:
    // Opens a file of the bytes 0, 1, 2 ... 99, or of the given ones, with a buffer of 16.
    BufferedFile* open(std::string bytes = "") {
        for (int i = 0; i < 100 && bytes.size() == static_cast<size_t>(i); ++i) {
            bytes += static_cast<char>(i);
        }
        write_file(folder.path("f"), bytes);
        file.reset(upnp_file_open_b(folder.path("f").c_str(), 16));
        return file.get();
    }
    void TearDown() override {
        file.reset();
        EXPECT_EQ(g_memUsed, 0);
    }
    TempFolder folder;
    OpenFile file;
};

TEST_F(BufferedFileTest, BlocksOfEveryLengthFollowEachOther) {
    open();
    for (int32_t first = 0; first <= 40; ++first) {
        for (int32_t second = 0; second <= 105 - first; second += 5) {
            uint8_t got[110];
            const int32_t end = std::min(first + second, 100);
            upnp_file_seek_b(file.get(), 0, 0);
            ASSERT_EQ(upnp_file_read_b(file.get(), got, first), first);
            ASSERT_EQ(upnp_file_read_b(file.get(), got + first, second), end - first);
            ASSERT_EQ(upnp_file_tell_b(file.get()), end) << first << " then " << second;
            for (int32_t i = 0; i < end; ++i) ASSERT_EQ(got[i], i);
        }
    }
    EXPECT_TRUE(upnp_file_is_at_end_b(file.get()));
}

TEST_F(BufferedFileTest, SeeksStayInTheBufferWhenTheyCan) {
    BufferedFile* const f = open();
    upnp_file_read_u64_b(f);
    EXPECT_EQ(upnp_file_seek_b(f, -8, 1), 0);
    EXPECT_EQ(f->handle->position, 16) << "the system's position moved";
    EXPECT_EQ(upnp_file_read_u16_b(f), 0x0001);
    EXPECT_EQ(upnp_file_seek_b(f, 5, 3), 0) << "no such origin";
    EXPECT_EQ(upnp_file_tell_b(f), 2);
    EXPECT_EQ(upnp_file_seek_b(f, 16, 0), 16) << "just behind the buffer";
    EXPECT_EQ(f->bytes_left, 0u);
    EXPECT_EQ(upnp_file_read_u8_b(f), 16);
    EXPECT_EQ(upnp_file_seek_b(f, -3, 2), 97);
    EXPECT_EQ(upnp_file_read_u32_b(f), 0u) << "three bytes are no 32-bit number";
    EXPECT_TRUE(upnp_file_is_at_end_b(f)) << "but they are consumed";
    EXPECT_EQ(upnp_file_seek_b(f, -1, 0), -1);
    EXPECT_EQ(upnp_file_seek_b(f, INT64_MAX, 1), -1);
    EXPECT_EQ(upnp_file_tell_b(f), 100);
    EXPECT_EQ(upnp_file_seek_b(f, int64_t{5} << 32, 0), int64_t{5} << 32);
    EXPECT_EQ(upnp_file_read_u8_b(f), 0);
}

TEST_F(BufferedFileTest, BitsComeFromBit15AndDoubled) {
    // The first word is 0x00008001: its lowest byte comes first in the file.
    BufferedFile* const f = open(std::string("\x01\x80\x00\x00\xff\xff\xff\xff", 8));
    EXPECT_EQ(upnp_file_read_bits_b(f, 24), 2 * ((1u << 23) | (1u << 8)));
    EXPECT_EQ(upnp_file_read_bits_b(f, 4), 0u) << "off the top of the word";
    EXPECT_EQ(upnp_file_tell_b(f), 4);
    EXPECT_EQ(upnp_file_read_bits_b(f, 24), 2 * (0xffffu << 4)) << "4 of the old word, then 20";
    EXPECT_EQ(upnp_file_tell_b(f), 8);
}

TEST_F(BufferedFileTest, WhatIsNoRegularFileGivesNoData) {
    EXPECT_FALSE(upnp_file_open_b(folder.path("missing").c_str(), 16));
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    for (const std::string& path : {folder.path(""), folder.path("pipe")}) {
        file.reset(upnp_file_open_b(path.c_str(), 16));
        ASSERT_TRUE(file) << path;
        uint8_t bytes[64];
        EXPECT_EQ(upnp_file_read_b(file.get(), bytes, 64), 0);
        EXPECT_EQ(upnp_file_read_b(file.get(), bytes, -1), -1);
    }
}
