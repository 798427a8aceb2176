// SPDX-License-Identifier: BSD-2-Clause
#include "movie/intra_probe.h"

#include <gtest/gtest.h>

#include "tests/support/box_builder.h"
#include "tests/support/memory_source.h"

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
    static const struct {
        const char* name;
        std::string sample;
        IntraGuess want;
    } kCases[] = {
        {"IDR", unit("\x65\x88"), IntraGuess::kIntra},
        {"IDR behind delimiter, sets and a long message",
         unit("\x09\x10") + sets + message + unit("\x65\x88"), IntraGuess::kIntra},
        {"I slice of type 7", intra_slice, IntraGuess::kIntra},
        {"I slice of type 2", all_intra, IntraGuess::kIntra},
        {"P slice", predicted, IntraGuess::kNotIntra},
        {"B slice", bidirectional, IntraGuess::kNotIntra},
        {"P slice in front of an IDR one", predicted + unit("\x65\x88"), IntraGuess::kNotIntra},
        {"message alone", message, IntraGuess::kNotIntra},
        {"empty units", unit("") + unit("") + unit("\x65\x88"), IntraGuess::kIntra},
        {"nothing", "", IntraGuess::kNotIntra},
        {"length beyond the sample", u32(100) + "\x65", IntraGuess::kUnknown},
        {"start codes", std::string("\0\0\0\1\x65\x88\x84", 7), IntraGuess::kIntra},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(probe(VideoCodec::kAvc, c.sample), c.want);
    }
    EXPECT_EQ(probe(VideoCodec::kAvc, std::string("\0\0\2\x65\x88", 5), 3), IntraGuess::kIntra);
    EXPECT_EQ(probe(VideoCodec::kAvc, std::string("\2\x41\xe0", 3), 1), IntraGuess::kNotIntra);
}

TEST(IntraProbe, ReadsTheHeadersOfPart2AndH263) {
    const std::string vop("\0\0\1\xb6", 4), layer("\0\0\1\x20 layer", 10);
    static const struct {
        const char* name;
        VideoCodec codec;
        std::string sample;
        IntraGuess want;
    } kCases[] = {
        {"I-VOP", VideoCodec::kMpeg4, vop + "\x10", IntraGuess::kIntra},
        {"I-VOP behind a layer", VideoCodec::kMpeg4, layer + vop + "\x10", IntraGuess::kIntra},
        {"P-VOP", VideoCodec::kMpeg4, vop + "\x50", IntraGuess::kNotIntra},
        {"cut start code", VideoCodec::kMpeg4, vop, IntraGuess::kUnknown},
        {"no VOP", VideoCodec::kMpeg4, std::string(2000, '\0'), IntraGuess::kUnknown},
        {"QCIF, intra", VideoCodec::kH263, std::string("\0\0\x80\x02\x08\x08", 6),
         IntraGuess::kIntra},
        {"QCIF, inter", VideoCodec::kH263, std::string("\0\0\x81\x92\x0a\x0c", 6),
         IntraGuess::kNotIntra},
        {"extended type, intra", VideoCodec::kH263,
         std::string("\0\0\x80\x02\x1c\x80\x00\x00\x40", 9), IntraGuess::kIntra},
        {"extended type, inter", VideoCodec::kH263,
         std::string("\0\0\x80\x02\x1c\x80\x00\x08\x40", 9), IntraGuess::kNotIntra},
        {"other bytes", VideoCodec::kH263, "picture", IntraGuess::kUnknown},
        {"nothing", VideoCodec::kH263, "", IntraGuess::kUnknown},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(probe(c.codec, c.sample), c.want);
    }
}
