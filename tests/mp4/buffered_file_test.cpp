// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/buffered_file.h"

#include <gtest/gtest.h>

#include "tests/support/temp_folder.h"

struct BufferedFileTest : testing::Test {
    // Opens a file of these bytes with a buffer of 16.
    BufferedFile* open(const std::string& bytes) {
        write_file(folder.path("f"), bytes);
        file.reset(upnp_file_open_b(folder.path("f").c_str(), 16));
        return file.get();
    }
    TempFolder folder;
    OpenFile file;
};

TEST_F(BufferedFileTest, SeeksStayInTheBufferWhenTheyCan) {
    std::string bytes;
    for (char i = 0; i < 100; ++i) bytes += i;
    BufferedFile* const f = open(bytes);
    upnp_file_read_u64_b(f);
    EXPECT_EQ(upnp_file_seek_b(f, -8, 1), 0);
    EXPECT_EQ(f->handle->position, 16) << "the system's position moved";
    EXPECT_EQ(upnp_file_read_u16_b(f), 0x0001);
    EXPECT_EQ(upnp_file_seek_b(f, 16, 0), 16) << "just after the buffer";
    EXPECT_EQ(upnp_file_read_u8_b(f), 16);
    EXPECT_EQ(upnp_file_seek_b(f, -3, 2), 97);
    EXPECT_EQ(upnp_file_read_u32_b(f), 0u) << "three bytes are no 32-bit number";
    EXPECT_TRUE(upnp_file_is_at_end_b(f)) << "but they are consumed";
    EXPECT_EQ(upnp_file_seek_b(f, -1, 0), -1);
    EXPECT_EQ(upnp_file_seek_b(f, INT64_MAX, 1), -1);
    EXPECT_EQ(upnp_file_tell_b(f), 100);
}

TEST_F(BufferedFileTest, BitsComeFromBit15AndDoubled) {
    // The first word is 0x00008001: its lowest byte comes first in the file.
    BufferedFile* const f = open(std::string("\x01\x80\x00\x00\xff\xff\xff\xff", 8));
    EXPECT_EQ(upnp_file_read_bits_b(f, 24), 2 * ((1u << 23) | (1u << 8)));
    EXPECT_EQ(upnp_file_read_bits_b(f, 4), 0u) << "off the top of the word";
    EXPECT_EQ(upnp_file_read_bits_b(f, 24), 2 * (0xffffu << 4)) << "4 of the old word, then 20";
    EXPECT_EQ(upnp_file_tell_b(f), 8);
}

TEST_F(BufferedFileTest, RemembersBuffersUntilItForgets) {
    BufferedFile* const f = open(std::string(2000, 'a'));
    for (int64_t i = 0; i < 100; ++i) {
        upnp_file_seek_b(f, i * 20, 0);
        upnp_file_read_u8_b(f);
        upnp_file_remember_b(f);
        upnp_file_remember_b(f);
    }
    write_file(folder.path("f"), std::string(2000, 'b'));
    const auto text_at = [f](int64_t position) {
        std::string text(20, ' ');
        upnp_file_seek_b(f, position, 0);
        EXPECT_EQ(upnp_file_read_b(f, text.data(), 8), 8);
        EXPECT_EQ(upnp_file_read_b(f, text.data() + 8, 12), 12);
        return text;
    };
    EXPECT_EQ(text_at(43), std::string(13, 'a') + "bbbbbbb")
        << "with what is missing from the file";
    EXPECT_EQ(text_at(63 * 20), std::string(16, 'a') + "bbbb");
    EXPECT_EQ(text_at(64 * 20), std::string(20, 'b')) << "one buffer too many";
    upnp_file_forget_b(f);
    EXPECT_EQ(text_at(43), std::string(20, 'b'));
}
