// SPDX-License-Identifier: BSD-2-Clause
#include "movie/intra_probe.h"

#include <gtest/gtest.h>

#include "tests/support/box_builder.h"
#include "tests/support/memory_source.h"

using enum IntraGuess;
using enum VideoCodec;

static IntraGuess probe(VideoCodec codec, const std::string& sample, uint32_t prefix_size = 4) {
    MemorySource source("front" + sample + "\x65\x88\x65\x88");
    WorkBudget work;
    SourceReader reader(&source, &work);
    return probe_sample(&reader, codec, prefix_size, 5, static_cast<uint32_t>(sample.size()));
}

static std::string unit(const std::string& bytes) { return u32(bytes.size()) + bytes; }

TEST(IntraProbe, ReadsTheFirstSliceOfAvc) {
    const std::string message = unit("\x06" + std::string(900, 'x'));
    const std::string sets = unit("\x67sequence") + unit("\x68picture");
    const std::string intra_slice = unit("\x41\x88\x80"), all_intra = unit("\x41\xb0");
    const std::string predicted = unit("\x41\xe0"), bidirectional = unit("\x01\xa0");
    const auto check = [&](const char* name, const std::string& sample, IntraGuess want) {
        EXPECT_EQ(probe(kAvc, sample), want) << name;
    };
    check("IDR", unit("\x65\x88"), kIntra);
    check("IDR after delimiter, sets and a long message",
          unit("\x09\x10") + sets + message + unit("\x65\x88"), kIntra);
    check("I slice of type 7", intra_slice, kIntra);
    check("I slice of type 2", all_intra, kIntra);
    check("P slice", predicted, kNotIntra);
    check("B slice", bidirectional, kNotIntra);
    check("P slice in front of an IDR one", predicted + unit("\x65\x88"), kNotIntra);
    check("message alone", message, kNotIntra);
    check("empty units", unit("") + unit("") + unit("\x65\x88"), kIntra);
    check("nothing", "", kNotIntra);
    check("length beyond the sample", u32(100) + "\x65", kUnknown);
    check("start codes", std::string("\0\0\0\1\x65\x88\x84", 7), kIntra);
    EXPECT_EQ(probe(kAvc, std::string("\0\0\2\x65\x88", 5), 3), kIntra);
    EXPECT_EQ(probe(kAvc, std::string("\2\x41\xe0", 3), 1), kNotIntra);
}

TEST(IntraProbe, KnowsHeadersOfPart2) {
    const auto code = [](char value) { return zeros(2) + "\1" + value; };
    const std::string layer = code('\x20') + "layer", object = code('\0') + layer;
    const auto is_mpeg4 = [](const std::string& sample) {
        return begins_like_mpeg4({reinterpret_cast<const uint8_t*>(sample.data()), sample.size()});
    };
    for (const std::string& headers : {layer, object, code('\xb0') + "\1" + object,
                                       code('\xb0') + "\1" + code('\xb5'), code('\xb5') + "v"}) {
        EXPECT_TRUE(is_mpeg4(headers));
        EXPECT_FALSE(is_mpeg4("v" + headers));
        EXPECT_FALSE(is_mpeg4(headers.substr(0, 3)));
    }
    EXPECT_FALSE(is_mpeg4(code('\0') + "\0\x0f\xff\xf8"));             // MPEG-2, a picture
    EXPECT_FALSE(is_mpeg4(code('\xb3') + "\x14\0\xf0\x13"));           // and a sequence
    EXPECT_FALSE(is_mpeg4(code('\xb0') + "\x20\x22" + code('\x24')));  // AVS
}

TEST(IntraProbe, ReadsTheHeadersOfPart2AndH263) {
    const std::string vop("\0\0\1\xb6", 4), layer("\0\0\1\x20 layer", 10);
    const std::string extended("\0\0\x80\x02\x1c", 5);
    const auto check = [&](const char* name, VideoCodec codec, const std::string& sample,
                           IntraGuess want) { EXPECT_EQ(probe(codec, sample), want) << name; };
    check("I-VOP", kMpeg4, vop + "\x10", kIntra);
    check("I-VOP after a layer", kMpeg4, layer + vop + "\x10", kIntra);
    check("P-VOP", kMpeg4, vop + "\x50", kNotIntra);
    check("cut start code", kMpeg4, vop, kUnknown);
    check("no VOP", kMpeg4, zeros(2000), kUnknown);
    check("QCIF, intra", kH263, zeros(2) + "\x80\x02\x08\x08", kIntra);
    check("QCIF, inter", kH263, zeros(2) + "\x81\x92\x0a\x0c", kNotIntra);
    check("extended type, intra", kH263, extended + "\x80" + zeros(2) + "\x40", kIntra);
    check("extended type, inter", kH263, extended + "\x80" + zeros(1) + "\x08\x40", kNotIntra);
    check("other bytes", kH263, "picture", kUnknown);
    check("nothing", kH263, "", kUnknown);
}
