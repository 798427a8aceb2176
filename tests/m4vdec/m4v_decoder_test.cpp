// SPDX-License-Identifier: BSD-2-Clause
// The decoder as the thumbnail writer calls it: headers wherever they stand, what is refused, and
// damaged streams, which must neither leak nor touch what is not theirs (the sanitizers watch).
#include "m4vdec/m4v_decoder.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "runtime/accounted_memory.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes prefix(const Bytes& a, size_t length) {
    return {a.begin(), a.begin() + static_cast<ptrdiff_t>(length)};
}

Bytes packed(const std::function<void(BitPacker*)>& write) {
    BitPacker out;
    write(&out);
    out.align(false);
    return out.bytes;
}

// Simple profile layer; `middle` are the fields from `interlaced` to `scalability`.
Bytes layer(unsigned width, unsigned height, const char* middle = "0 1 0 0 0 1 1 0 0",
            const char* shape = "00", unsigned type = 1) {
    return packed([&](BitPacker* out) {
        out->start_code(0x20);
        out->put("0"), out->put(type, 8), out->put("0 0001 0"), out->put(shape);
        out->put("1 0000000000011001 1 0 1");
        out->put(width, 13), out->put("1"), out->put(height, 13), out->put("1");
        out->put(middle);
    });
}

// Each macroblock codes a DC difference of `step` in its first block and nothing else.
Bytes vop(unsigned mbs, const char* type = "00", const char* coded = "1",
          const char* quant = "00100") {
    return packed([&](BitPacker* out) {
        out->start_code(0xb6);
        out->put(type), out->put("0 1 00000 1"), out->put(coded);
        out->put("000"), out->put(quant);
        for (unsigned i = 0; i < mbs; ++i) out->put("1 0 0011 11 0 011 011 011 11 11");
        out->put("0111111");
    });
}

Bytes h263(unsigned mbs) {
    return packed([&](BitPacker* out) {
        out->put(0x20, 22), out->put("00000000 10 000 001 00000 00101 0 0");
        for (unsigned i = 0; i < mbs; ++i) {
            out->put("1 0011"), out->put(0x404142, 24), out->put(0x434445, 24);
        }
    });
}

const Bytes kUserData = {0, 0, 1, 0xb2, 'x', 0, 0, 0x81, 0, 0, 2, 0x20};
const Bytes kSequence = {0, 0, 1, 0xb0, 1, 0, 0, 1, 0xb5, 9, 0, 0, 1, 0};
const Bytes kStudioSequence = {0, 0, 1, 0xb0, 0xe3, 0, 0, 1, 0xb5, 9, 0, 0, 1, 0};

// As many pictures as can be had from the sample, with nothing left behind.
int decode(const Bytes& config, const Bytes& sample, bool is_mpeg4 = true) {
    Bytes planes;
    upnp_memory_init();
    const int result = decode_sample(config, sample, is_mpeg4, &planes);
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    return result;
}

}  // namespace

TEST(Decoder, FindsHeadersWhereverTheyStand) {
    const Bytes l = layer(32, 16), picture = vop(2), other = layer(48, 16);
    EXPECT_EQ(decode(l, picture), 0);
    EXPECT_EQ(decode({}, l + picture), 0);
    EXPECT_EQ(decode(kSequence + l + kUserData, kUserData + picture), 0);
    EXPECT_EQ(decode(kSequence + l, kSequence + l + kUserData + picture), 0);
    EXPECT_EQ(decode(kSequence + prefix(l, 9), l + picture), 0);
    EXPECT_EQ(decode(layer(32, 16, "0 1 0 0 0 1 1 0 0", "01"), l + picture), 0);
    EXPECT_EQ(decode(l, picture + vop(2, "01")), 0);  // another picture packed behind it
    EXPECT_EQ(decode(kSequence, kSequence + h263(48)), 0);
    EXPECT_EQ(decode({1, 2, 3}, h263(48), false), 0);
    EXPECT_EQ(decode({}, Bytes{0, 0, 1, 7} + h263(48), false), 0);

    EXPECT_EQ(decode({}, picture), 1);
    EXPECT_EQ(decode(l, other + vop(3)), 1);  // not what the buffer was made for
    EXPECT_EQ(decode(l, h263(48)), 1);
    EXPECT_EQ(decode(kStudioSequence + l, picture), 1);
    EXPECT_EQ(decode({}, l + picture, false), 1);
    EXPECT_EQ(decode(l, {}), 1);
}

TEST(Decoder, RefusesWhatIsNoIntraPictureOrNotSupported) {
    static const struct {
        const char* name;
        const char* middle;
        const char* shape = "00";
        unsigned type = 1;
    } kLayers[] = {
        {"binary shape", "0 1 0 0 0 1 1 0 0", "01"},
        {"grey shape", "0 1 0 0 0 1 1 0 0", "11"},
        {"fine granularity", "0 1 0 0 0 1 1 0 0", "00", 0x12},
        {"studio", "0 1 0 0 0 1 1 0 0", "00", 0x0e},
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
    Bytes planes;
    EXPECT_EQ(decode_sample(layer(8191, 8191), vop(50), true, &planes), 1);
    EXPECT_LT(g_memPeak, 4096);
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    // And one of that size decodes when the sample is long enough to hold it.
    EXPECT_EQ(decode(layer(8191, 8191), vop(512 * 512)), 0);
    EXPECT_EQ(decode(layer(8191, 8191), vop(512 * 512 - 1)), 1);
}

TEST(Decoder, SurvivesEndlessStuffing) {
    const Bytes l = layer(16, 16);
    for (const bool is_partitioned : {false, true}) {
        Bytes sample = packed([&](BitPacker* out) {
            out->start_code(0xb6);
            out->put("00 0 1 00000 1 1 000 00100");
            for (int i = 0; i < 20000; ++i) out->put("000000001");
        });
        EXPECT_EQ(
            decode(layer(16, 16, is_partitioned ? "0 1 0 0 0 1 0 1 0 0" : "0 1 0 0 0 1 0 0 0"),
                   sample),
            1);
        EXPECT_EQ(decode(l, sample), 1);
    }
    EXPECT_EQ(decode(l, Bytes{0, 0, 1, 0xb6} + Bytes(5000, 0xff)), 1);  // endless modulo time
}

// Pairs of configuration and sample that decode: plain, partitioned with reversible codes and two
// packets, interlaced with a matrix and complexity fields, short video header.
static std::vector<std::pair<Bytes, Bytes>> some_streams() {
    const Bytes partitioned = packed([](BitPacker* out) {
        out->start_code(0xb6);
        out->put("00 0 1 00000 1 1 000 00100");
        for (int packet = 0; packet < 2; ++packet) {
            if (packet)
                out->align(true), out->put("00000000000000001 1 00101 1 10 1 00011 1 00 000");
            out->put("1 11 0 011 011 011 11 11 1101011000000000001 1 00010");
            out->put("1010 0  00001 0 000001 1 00000001111 1 0000 1  1011 1");
        }
        out->align(true);
    });
    const Bytes interlaced = packed([](BitPacker* out) {
        out->start_code(0xb6);
        out->put("00 0 1 00000 1 1"), out->put(0x12345678, 32), out->put(0xabcd, 16);
        out->put("000 1 1 01000");
        for (int i = 0; i < 6; ++i) {
            out->put("1 1 00010 1 11 0 110 0 0000011 11 0 000001 1 000000001010 1");
            out->put("0000011 11 1 000110 1 111111110000 1 011 011 011 11 11");
        }
        out->align(true);
    });
    return {
        {layer(48, 32), vop(6)},
        {layer(32, 16, "0 1 0 0 0 1 0 1 1 0"), partitioned},
        {layer(48, 32, "1 1 0 0 1 1 00010000 00100000 00000000 0 0 01 0 111111 1 1 1 1 1 1 1 0 0"),
         interlaced},
        {{}, h263(48)}};
}

TEST(Decoder, SurvivesTruncationAtEveryByte) {
    for (const auto& [config, sample] : some_streams()) {
        ASSERT_EQ(decode(config, sample), 0);
        for (size_t n = 0; n < sample.size(); ++n) {
            const int result = decode(config, prefix(sample, n));
            ASSERT_TRUE(result == 1 || n + 2 >= sample.size()) << n;  // all but stuffing matters
        }
        for (size_t n = 0; n < config.size(); ++n) {
            decode(prefix(config, n), sample);
        }
    }
}

TEST(Decoder, SurvivesFlippedBits) {
    std::mt19937 random(11);
    for (const auto& [config, sample] : some_streams()) {
        for (int n = 0; n < 3000; ++n) {
            Bytes c = config, s = sample;
            for (unsigned flips = 1 + random() % 4; flips > 0; --flips) {
                Bytes& damaged = !c.empty() && random() % 3 == 0 ? c : s;
                damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1u << random() % 8);
            }
            decode(c, s, random() % 8 != 0);
        }
    }
}
