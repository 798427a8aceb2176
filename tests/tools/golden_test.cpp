// SPDX-License-Identifier: BSD-2-Clause
// Decodes a key frame of every test clip and compares checksums of its planes with
// tests/golden.txt. Lines there: clip, per cent of the clip, width x height, CRC-32 of the planes
// without padding.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame.h"
#include "tool/key_frames.h"

static uint32_t crc32(uint32_t crc, const uint8_t* data, size_t length) {
    for (crc = ~crc; length > 0; --length) {
        crc ^= *data++;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xedb88320U : 0);
    }
    return ~crc;
}

static uint32_t crc_of_planes(const DecodedPicture& p) {
    uint32_t crc = 0;
    for (const uint32_t offset : {uint32_t{0}, p.u_offset, p.v_offset}) {
        const uint32_t scale = offset == 0 ? 1 : 2;
        for (uint32_t y = 0; y < (p.height + scale - 1) / scale; ++y) {
            const uint8_t* const row = p.planes + offset + size_t{y} * (p.stride / scale);
            crc = crc32(crc, row, (p.width + scale - 1) / scale);
        }
    }
    return crc;
}

// The line's last two fields.
static std::string describe_key_frame(const std::string& clip, int percent) {
    KeyFrame record = {};
    KeyFrameRequest request = {};
    request.clip_offset_percent = percent;
    request.key_frame_count = 1;
    DecodedPicture picture = {};
    std::ostringstream text;
    const std::string path = KEYSTILL_MEDIA + clip;
    if (GetKeyFrameMpeg4(path.c_str(), &request) == 0 && request.key_frame_count == 1 &&
        key_frame_read(&request, 0, &record) == Refusal::kNone &&
        decode_key_frame(record, request.codec_kind, &picture) == 0) {
        text << picture.width << 'x' << picture.height << ' ' << std::hex << crc_of_planes(picture);
        upnp_free(picture.planes);
    }
    key_frame_release(&record);
    return text.str();
}

TEST(Golden, EveryTestClipDecodesToItsChecksum) {
    std::ifstream golden(KEYSTILL_GOLDEN);
    int clips = 0;
    for (std::string line; std::getline(golden, line);) {
        std::istringstream fields(line);
        std::string clip, size, crc;
        int percent = 0;
        ASSERT_TRUE(fields >> clip >> percent >> size >> crc) << line;
        upnp_memory_init();
        EXPECT_EQ(describe_key_frame(clip, percent), size + ' ' + crc) << line;
        EXPECT_EQ(g_memUsed, 0);
        upnp_memory_exit();
        ++clips;
    }
    EXPECT_GE(clips, 12);
}
