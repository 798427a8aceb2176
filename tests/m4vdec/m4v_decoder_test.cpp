// SPDX-License-Identifier: BSD-2-Clause
// The decoder as the thumbnail writer calls it: headers wherever they stand, what is refused, and
// damaged streams, which must neither leak nor touch what is not theirs (the sanitizers watch).
#include "m4vdec/m4v_decoder.h"

#include <gtest/gtest.h>

#include "runtime/accounted_memory.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

using Bytes = std::string;

const char* const kPlain = "0 1 0 0 0 1 1 0 0";  // the fields from `interlaced` to `scalability`

Bytes layer(unsigned width, unsigned height, const char* middle = kPlain, const char* shape = "00",
            unsigned type = 1) {
    BitPacker out;
    out.u(32, 0x120).text("0").u(8, type).text("0 0001 0").text(shape);
    out.text("1 0000000000011001 1 0 1").u(13, width).u(1, 1).u(13, height).u(1, 1);
    return out.text(middle).str();
}

// Each macroblock codes a DC difference of `step` in its first block and nothing else.
Bytes vop(unsigned mbs, const char* type = "00", const char* coded = "1",
          const char* quant = "00100") {
    BitPacker out;
    out.u(32, 0x1b6).text(type).text("0 1 00000 1").text(coded).text("000").text(quant);
    for (unsigned i = 0; i < mbs; ++i) out.text("1 0 0011 11 0 011 011 011 11 11");
    return out.text("0111111").str();
}

Bytes h263(unsigned mbs) {
    BitPacker out;
    out.u(22, 0x20).text("00000000 10 000 001 00000 00101 0 0");
    for (unsigned i = 0; i < mbs; ++i) out.text("1 0011").u(48, 0x404142434445);
    return out.str();
}

const Bytes kUserData("\0\0\1\xb2x\0\0\x81\0\0\2\x20", 12);
const Bytes kSequence("\0\0\1\xb0\1\0\0\1\xb5\t\0\0\1\0", 14);
const Bytes kStudioSequence("\0\0\1\xb0\xe3\0\0\1\xb5\t\0\0\1\0", 14);

// As many pictures as can be had from the sample, with nothing left behind.
int decode(const Bytes& config, const Bytes& sample, bool is_mpeg4 = true) {
    std::vector<uint8_t> planes;
    upnp_memory_init();
    const int result = decode_sample(config, sample, is_mpeg4, &planes);
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    return result;
}

}  // namespace

TEST(Decoder, FindsHeadersWhereverTheyStand) {
    const Bytes l = layer(32, 16), picture = vop(2), other = layer(48, 16);
    const struct {
        Bytes config, sample;
        int want;
        bool is_mpeg4 = true;
    } kCases[] = {
        {l, picture, 0},
        {"", l + picture, 0},
        {kSequence + l + kUserData, kUserData + picture, 0},
        {kSequence + l, kSequence + l + kUserData + picture, 0},
        {kSequence + l.substr(0, 9), l + picture, 0},
        {layer(32, 16, kPlain, "01"), l + picture, 0},
        {l, picture + vop(2, "01"), 0},  // another picture packed behind it
        {kSequence, kSequence + h263(48), 0},
        {"\1\2\3", h263(48), 0, false},
        {"", Bytes("\0\0\1\7", 4) + h263(48), 0, false},
        {"", picture, 1},
        {l, other + vop(3), 1},  // not what the buffer was made for
        {l, h263(48), 1},
        {kStudioSequence + l, picture, 1},
        {"", l + picture, 1, false},
        {l, "", 1},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(decode(c.config, c.sample, c.is_mpeg4), c.want) << &c - kCases;
    }
}

TEST(Decoder, RefusesWhatIsNoIntraPictureOrNotSupported) {
    static const struct {
        const char* name;
        const char* middle;
        const char* shape = "00";
        unsigned type = 1;
    } kLayers[] = {
        {"binary shape", kPlain, "01"},
        {"grey shape", kPlain, "11"},
        {"fine granularity", kPlain, "00", 0x12},
        {"studio", kPlain, "00", 0x0e},
        {"static sprite", "0 1 1 0 0 1 1 0 0"},
        {"12 bits", "0 1 0 1 0101 1100 0 1 1 0 0"},
        {"quantiser of 6 bits", "0 1 0 1 0110 1000 0 1 1 0 0"},
        {"matrix that begins with 0", "0 1 0 0 1 1 00000000"},
        {"reserved complexity", "0 1 0 0 0 0 10 1 1 0 0"},
        {"scalability", "0 1 0 0 0 1 1 0 1"},
    };
    for (const auto& l : kLayers) {
        const Bytes config = layer(16, 16, l.middle, l.shape, l.type);
        EXPECT_EQ(decode(config, vop(1)), 1) << l.name;
    }
    EXPECT_EQ(decode(layer(0, 16), vop(1)), 1);
    EXPECT_EQ(decode(layer(16, 0), vop(1)), 1);
    const Bytes l = layer(16, 16);
    EXPECT_EQ(decode(l, vop(1)), 0);
    EXPECT_EQ(decode(l, vop(1, "01")), 1) << "predicted";
    EXPECT_EQ(decode(l, vop(1, "10")), 1) << "bidirectional";
    EXPECT_EQ(decode(l, vop(1, "11")), 1) << "sprite";
    EXPECT_EQ(decode(l, vop(1, "00", "0")), 1) << "not coded";
    EXPECT_EQ(decode(l, vop(1, "00", "1", "00000")), 1) << "quantiser 0";
    EXPECT_EQ(decode(l, vop(0)), 1) << "no macroblock";
}

TEST(Decoder, RefusesHugePicturesBeforeTakingMemory) {
    upnp_memory_init();
    std::vector<uint8_t> planes;
    EXPECT_EQ(decode_sample(layer(8191, 8191), vop(50), true, &planes), 1);
    EXPECT_LT(g_memPeak, 4096);
    upnp_memory_exit();
    // And one of that size decodes when the sample is long enough to hold it.
    EXPECT_EQ(decode(layer(8191, 8191), vop(512 * 512)), 0);
    EXPECT_EQ(decode(layer(8191, 8191), vop(512 * 512 - 1)), 1);
}

TEST(Decoder, SurvivesEndlessStuffing) {
    BitPacker out;
    out.u(32, 0x1b6).text("00 0 1 00000 1 1 000 00100");
    for (int i = 0; i < 20000; ++i) out.text("000000001");
    for (const char* middle : {kPlain, "0 1 0 0 0 1 0 1 0 0", "0 1 0 0 0 1 0 0 0"}) {
        EXPECT_EQ(decode(layer(16, 16, middle), out.str()), 1);
    }
    // Endless modulo time.
    EXPECT_EQ(decode(layer(16, 16), Bytes("\0\0\1\xb6", 4) + Bytes(5000, '\xff')), 1);
}

// Pairs of configuration and sample that decode: plain, partitioned with reversible codes and two
// packets, interlaced with a matrix and complexity fields, short video header.
static std::vector<std::pair<Bytes, Bytes>> some_streams() {
    BitPacker partitioned, interlaced;
    partitioned.u(32, 0x1b6).text("00 0 1 00000 1 1 000 00100");
    for (int packet = 0; packet < 2; ++packet) {
        if (packet) partitioned.u(1, 0).align(1).u(17, 1).text("1 00101 1 10 1 00011 1 00 000");
        partitioned.text("1 11 0 011 011 011 11 11 1101011000000000001 1 00010");
        partitioned.text("1010 0  00001 0 000001 1 00000001111 1 0000 1  1011 1");
    }
    interlaced.u(32, 0x1b6).text("00 0 1 00000 1 1").u(48, 0x12345678abcd).text("000 1 1 01000");
    for (int i = 0; i < 6; ++i) {
        interlaced.text("1 1 00010 1 11 0 110 0 0000011 11 0 000001 1 000000001010 1");
        interlaced.text("0000011 11 1 000110 1 111111110000 1 011 011 011 11 11");
    }
    return {
        {layer(48, 32), vop(6)},
        {layer(32, 16, "0 1 0 0 0 1 0 1 1 0"), partitioned.u(1, 0).align(1).str()},
        {layer(48, 32, "1 1 0 0 1 1 00010000 00100000 00000000 0 0 01 0 111111 1 1 1 1 1 1 1 0 0"),
         interlaced.u(1, 0).align(1).str()},
        {"", h263(48)}};
}

TEST(Decoder, SurvivesTruncationAtEveryByte) {
    for (const auto& [config, sample] : some_streams()) {
        ASSERT_EQ(decode(config, sample), 0);
        for (size_t n = 0; n < sample.size(); ++n) {
            const int result = decode(config, sample.substr(0, n));
            ASSERT_TRUE(result == 1 || n + 2 >= sample.size()) << n;  // all but stuffing matters
        }
        for (size_t n = 0; n < config.size(); ++n) decode(config.substr(0, n), sample);
    }
}

TEST(Decoder, SurvivesFlippedBits) {
    std::mt19937 random(11);
    for (const auto& [config, sample] : some_streams()) {
        for (int n = 0; n < 3000; ++n) {
            Bytes c = config, s = sample;
            for (unsigned flips = 1 + random() % 4; flips > 0; --flips) {
                Bytes& damaged = !c.empty() && random() % 3 == 0 ? c : s;
                damaged[random() % damaged.size()] ^= static_cast<char>(1u << random() % 8);
            }
            decode(c, s, random() % 8 != 0);
        }
    }
}
