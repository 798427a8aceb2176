// SPDX-License-Identifier: BSD-2-Clause
// The decoder as the thumbnail writer calls it: headers wherever they stand, what is refused, and
// memory that is short. Pictures with every tool and damaged ones are the fuzz target's.
#include "m4vdec/m4v_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <variant>

#include "runtime/accounted_memory.h"
#include "tests/m4vdec/m4v_writer.h"
#include "tests/support/bit_packer.h"
#include "tests/support/failing_malloc.h"
#include "thumb/decode_key_frame_mpeg4.h"

using Bytes = std::string;
// The sample at the top left, or why the picture is to be refused.
using Outcome = std::variant<int, M4vRefusal>;

// Leaves no memory behind.
static Outcome decode(const Bytes& config, const Bytes& sample, bool is_mpeg4 = true) {
    // Copies of the exact size, so that a sanitizer sees any access behind them.
    const auto config_copy = std::make_unique<uint8_t[]>(config.size());
    const auto sample_copy = std::make_unique<uint8_t[]>(sample.size());
    std::copy(config.begin(), config.end(), config_copy.get());
    std::copy(sample.begin(), sample.end(), sample_copy.get());
    const int lengths[2] = {static_cast<int>(config.size()), static_cast<int>(sample.size())};
    const KeyFrame record = {config_copy.get(), lengths[0], sample_copy.get(), lengths[1], 0, 0};
    DecodedPicture p = {};
    upnp_memory_init();
    Outcome outcome = decode_key_frame_mpeg4(record, is_mpeg4, &p);
    if (outcome == Outcome(M4vRefusal::kNone)) outcome = p.planes[0];
    if (p.planes) upnp_free(p.planes);
    EXPECT_EQ(g_memUsed, 0);
    EXPECT_LT(g_memPeak, 4096 + 4096 * static_cast<int64_t>(sample.size()));
    upnp_memory_exit();
    return outcome;
}

static WrittenPicture random_picture(bool is_h263, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<uint8_t> noise(20000);
    std::generate(noise.begin(), noise.end(), random);
    Choices choices(noise.data(), noise.size());
    return write_picture(is_h263, &choices);
}

// Each macroblock codes a DC difference in its first block and nothing else.
static Bytes vop(unsigned mbs, const Bytes& header = "00 0 1 0000 1 1 000 00100") {
    BitPacker out;
    out.u(32, 0x1b6).text(header);
    for (unsigned i = 0; i < mbs; ++i) out.text("1 0 0011 11 1 011 011 011 11 11");
    return out.text("0111111").str();
}

// 99 macroblocks that begin with samples of 64; the header from behind the temporal reference.
static Bytes h263(const Bytes& header = "10 000 010 00000 00101 0 0") {
    BitPacker out;
    out.u(22, 0x20).u(8, 77).text(header);
    for (unsigned i = 0; i < 99; ++i) out.text("1 0011").u(48, 0x404142434445);
    return out.str();
}

static Bytes h263_plus(const Bytes& format_and_modes, const Bytes& type = "000000001") {
    return h263("10 000 111 001" + format_and_modes + type + "0 00101 0");
}

TEST(Decoder, ReadsHeadersAndRefusesWhatIsNotSupported) {
    using R = M4vRefusal;
    const Bytes plain = "0 1 0 0 0 1 1 0 0";  // a layer's fields from `interlaced` on
    const auto layer = [](const Bytes& fields) { return mpeg4_layer(32, 16, fields); };
    const Bytes l = layer(plain), picture = vop(2);
    const Bytes user_data("\0\0\1\xb2x\0\0\x81\0\0\2\x20\1\x20\0\1", 16);
    const Bytes sequence("\0\0\1\xb0\1\0\0\1\xb5\t\0\0\1\0", 14);
    const Bytes version_2("\0\0\1\xb5\x91", 5);
    const Bytes huge = mpeg4_layer(8191, 8191, plain);

    BitPacker full;  // with the second version of the syntax by word of the visual object
    full.u(32, 0x1b0).u(8, 0xf3).u(32, 0x1b5).text("1 0010 001 0001 1 101 0 1").u(24, 0x010203);
    full.align().u(32, 0x12f).text("0 00000001 0 1111").u(16, 0x100b);  // pixel aspect ratio
    full.text("1 01 1 1").u(48, 0x123456789abd).u(31, 0x2aaaaaaa);      // control and VBV
    full.text("00 1 0000000000010000 1 1 0101 1").u(13, 32).u(1, 1).u(13, 16).text("1 0 1");
    full.text("10 000011 01 0 0 0 1");  // global motion compensation, quarter sample
    full.text("0 01 0 111111 0 1101 1 0 1111 0 111111 1 0 11");  // complexity: 13 fields
    full.text("1 0 0 1 0").u(48, 0x1b3).u(8, 0xff);              // reduced resolution

    Bytes stuffing = "00 0 1 0000 1 1 000 00100";
    for (int i = 0; i < 20000; ++i) stuffing += "000000001";
    const Bytes every_field =
        "1111 000000011 1 000000100 0000101000001011 10000001 01 01 100 1 0000000001 01 00101 0";
    const Bytes first_dc = "00 0 1 0000 1 1 000 00100 1 0 0011", dcs = "011 011 011 11 11";
    const Bytes modes = "000000000001000", custom = "110" + modes + "000000001 0 0010 000000001 1";

    std::set<Outcome> seen = {R::kNoMemory};  // which another test brings about
    const auto check = [&](const Bytes& config, const Bytes& sample, const Outcome& want,
                           bool is_mpeg4 = true, int line = __builtin_LINE()) {
        EXPECT_TRUE(decode(config, sample, is_mpeg4) == want) << "line " << line;
        if (std::holds_alternative<R>(want)) seen.insert(want);
    };
    // Headers wherever they stand.
    check(l, picture, 129);
    check("", l + picture, 129);
    check(sequence + l + user_data, sequence + l + user_data + picture, 129);
    check(sequence + l.substr(0, 9), l + picture, 129);
    check(mpeg4_layer(32, 16, plain, "01"), l + picture, 129);
    check(l, picture + vop(2, "01"), 129);  // another picture packed behind it
    check(sequence, sequence + h263(), 64);
    check("\1\2\3", h263(), 64, false);
    check("", Bytes("\0\0\1\7", 4) + h263(), 64, false);
    check("", picture, R::kNoLayer);
    check(l, mpeg4_layer(48, 16, plain) + vop(3), R::kSizeChange);
    check(l, mpeg4_layer(32, 16, plain, "01") + picture, R::kShape);
    check(l, h263(), R::kSizeChange);
    check(Bytes("\0\0\1\xb0\xe3", 5) + l, picture, R::kStudioProfile);
    check("", l + picture, R::kNoPicture, false);
    check(l, "", R::kNoPicture);
    // MPEG-4: every field, layers, VOPs.
    check(full.str(), vop(2, "00 1110 1 0101 1 1 0" + Bytes(100, '1') + "000 10100"), 133);
    check(full.str(), vop(2, "00 1110 1 0101 1 1 1" + Bytes(100, '1') + "000 10100"),
          R::kReducedResolution);
    check(huge, vop(512 * 512), 129);
    check(huge, vop(50), R::kSampleTooShort);
    check(huge, vop(512 * 512 - 1), R::kCutOff);
    check(mpeg4_layer(32, 16, plain, "00", 0x12), picture, R::kFineGranularity);
    check(mpeg4_layer(32, 16, plain, "00", 0x0e), picture, R::kStudioProfile);
    check(mpeg4_layer(32, 16, plain, "00", 0x0f), picture, R::kStudioProfile);
    check(mpeg4_layer(0, 16, plain), picture, R::kDamagedLayer);
    check(mpeg4_layer(32, 0, plain), picture, R::kDamagedLayer);
    check(layer("0 1 1 0 0 1 1 0 0"), picture, R::kStaticSprite);
    // Samples of 12 bits, a quantiser of 6, a matrix of zeros, complexity.
    check(layer("0 1 0 1 0101 1100 0 1 1 0 0"), picture, R::kSampleDepth);
    check(layer("0 1 0 1 0110 1000 0 1 1 0 0"), picture, R::kSampleDepth);
    check(layer("0 1 0 0 1 1 00000000 0 1 1 0 0"), picture, R::kDamagedLayer);
    check(layer("0 1 0 0 0 0 10 11111111 1 0 0"), picture, R::kDamagedLayer);
    check(layer("0 1 0 0 0 1 1 0 1"), picture, R::kScalability);
    check(l, vop(2, "01 0 1 0000 1 1 000 00100"), R::kNotIntra);
    check(l, vop(2, "00 0 1 0000 1 0 000 00100"), R::kNotCoded);
    check(l, vop(2, "00 0 1 0000 1 1 000 00000"), R::kDamagedHeader);  // quantiser 0
    check(l, vop(2, "00" + Bytes(40000, '1')), R::kCutOff);            // endless time
    // A DC difference of 13 bits, and one without its marker.
    check(l, vop(2, first_dc + "000000000001 1000000000000 1" + dcs), R::kDamagedData);
    check(l, vop(2, first_dc + "00000001 100000000 0" + dcs), R::kDamagedData);
    check(l, vop(2, first_dc + "00000001 100000000" + dcs), R::kDamagedData);
    check(l, vop(0, stuffing), R::kCutOff);
    check(layer("0 1 0 0 0 1 0 1 0 0"), vop(0, stuffing), R::kCutOff);  // partitioned
    check(layer("0 1 0 0 0 1 0 0 0"), vop(0, stuffing), R::kCutOff);    // in packets
    check(version_2 + layer("0 1 00 0 0 0 1 1 0 1"), picture, R::kNewpred);
    // H.263: every field, then each that is refused.
    check("", h263("10 101 010 01010 00101 1 01 1 00000000 1 11111111 0"), 64);
    check("", h263("10 101 111 001 110 110100010101000 000001001 1 10" + every_field), 64);
    check("", h263_plus("010" + modes), 64);
    // A level of 11 bits, as only modified quantisation has them.
    check("",
          h263("10 000 010 00000 00101 0 0 1 11 01000000 0000011 1 000000 10000000 00001 000000"),
          R::kDamagedData);
    check("", h263("00 000 010 00000 00101 0 0"), R::kDamagedHeader);  // fixed bits
    check("", h263("10 000 000 00000 00101 0 0"), R::kDamagedHeader);  // forbidden format
    check("", h263("10 000 110 00000 00101 0 0"), R::kDamagedHeader);  // reserved format
    check("", h263("10 000 010 10000 00101 0 0"), R::kNotIntra);
    check("", h263("10 000 010 00100 00101 0 0"), R::kArithmeticCoding);
    check("", h263("10 000 010 00001 00101 0 0"), R::kNotIntra);       // PB-frame
    check("", h263("10 000 010 00000 00000 0 0"), R::kDamagedHeader);  // quantiser 0
    check("", h263("10 000 111 000 010" + modes + "000000001 0 00101 0"), R::kNotIntra);
    check("", h263_plus("010 001000000001000"), R::kArithmeticCoding);
    check("", h263_plus("010" + modes, "001000001"), R::kNotIntra);
    check("", h263_plus("010" + modes, "000100001"), R::kResampling);
    check("", h263_plus("010" + modes, "000010001"), R::kReducedResolution);
    check("", h263_plus("010 000000010001000", "000000001 0 100 0 1"), R::kBackChannel);
    // Heights of 0 and 1156.
    check("", h263("10 000 111 001" + custom + "000000000 00101 0"), R::kDamagedHeader);
    check("", h263("10 000 111 001" + custom + "100100001 00101 0"), R::kDamagedHeader);
    EXPECT_EQ(seen.size(), size_t{static_cast<unsigned>(kM4vLastRefusal)});
}

TEST(Decoder, SaysWhenMemoryIsShort) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const auto [config, sample, planes] = random_picture(seed % 2, seed);
        Outcome outcome;
        // The first allocation is that of the allocator's lock.
        for (int n = 2;; ++n) {
            fail_allocation(n);
            outcome = decode(config, sample);
            if (!has_allocation_failed()) break;
            EXPECT_TRUE(outcome == Outcome(M4vRefusal::kNoMemory)) << seed << ' ' << n;
        }
        fail_allocation(0);
        EXPECT_TRUE(outcome == Outcome(planes[0]));
    }
}
