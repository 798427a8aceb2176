// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/sample_description.h"

#include "tests/mp4/walked_file.h"

static std::string text(const ConfigBlock& block) {
    return block.bytes ? std::string(reinterpret_cast<char*>(block.bytes.get()), block.length)
                       : "none";
}

static std::string stsd(const std::string& entries) { return full_box("stsd", u32(1) + entries); }

TEST(SampleDescription, FirstEntryOfTheLastBoxDecidesTheCodec) {
    const std::string avc = avc_entry("s", "p");
    EXPECT_EQ(WalkedFile(movie_of(stsd(h263_entry() + avc))).state.codec_kind, 2);
    EXPECT_EQ(WalkedFile(movie_of(stsd(avc) + stsd(box("hvc1")))).state.codec_kind, -1);
    EXPECT_TRUE(WalkedFile(movie_of(stsd(box("drmi", zeros(78))))).context.info.is_protected);
}

TEST(SampleDescription, ParameterSetsKeepTheirLengths) {
    const std::string ten = u16(10) + "0123456789", six = u16(6) + "abcdef", one = u16(1) + "p";
    const auto check = [&](const char* name, const std::string& record,
                           const std::string& sequence_sets, const std::string& picture_sets,
                           int32_t prefix) {
        SCOPED_TRACE(name);
        const std::string avcc = box("avcC", "\1\x42" + zeros(1) + "\x1e" + record);
        const WalkedFile walked(
            movie_of(stsd(box("avc1", zeros(78) + avcc)) + stsd(avc_entry("later", "q", 2))));
        EXPECT_EQ(text(walked.state.sequence_sets), sequence_sets);
        EXPECT_EQ(text(walked.state.picture_sets), picture_sets);
        EXPECT_EQ(walked.state.length_prefix_size, prefix);
    };
    check("two sets", "\xff\xe2" + ten + six + "\1" + one, ten + six, one, 4);
    check("prefix of 1", "\xfc\xe1" + ten + "\2" + one + six, ten, one + six, 1);
    check("reserved bits", "\x03\x01" + ten + "\xe1" + one, ten, one, 4);
    check("no sequence set", "\xfe\xe0\1" + one, "", one, 3);
    check("no picture set", "\xfe\xe1" + ten + zeros(1) + six, ten, "", 3);
    check("past the end", "\xff\xe1" + u16(5) + "abc", u16(5) + "abc" + zeros(2), "", 4);
}

TEST(SampleDescription, Mpeg4ConfigurationStartsAtTheSequenceHeader) {
    const std::string start("\0\0\1\xb0", 4), info = start + std::string(22, 'v');
    // The byte that tells the length of the DecoderSpecificInfo.
    const auto with_length = [&](const char* length) {
        return mpeg4_entry(start).replace(101, 1, length);
    };
    const auto check = [&](const char* name, const std::string& entry, const std::string& config) {
        EXPECT_EQ(text(WalkedFile(movie_of(stsd(entry))).state.mpeg4_config), config) << name;
    };
    check("found", mpeg4_entry(info), info);
    check("length's top bit is ignored", with_length("\x84"), start);
    check("past the end", with_length("\x07"), start + "\6" + zeros(2));
    check("no sequence header", mpeg4_entry("\1\2\3"), "none");
    check("esds further on", box("mp4v", zeros(78) + box("pasp") + mpeg4_entry(info).substr(86)),
          "none");
}

TEST(SampleDescription, H263ConfigurationCountsTheTag) {
    const WalkedFile walked(movie_of(stsd(h263_entry()) + stsd(box("s263"))));
    EXPECT_EQ(text(walked.state.h263_config), "test" + zeros(3 + 4));
}

TEST(SampleDescription, SearchesLeaveOutTheLastByte) {
    static const uint8_t kData[] = {'e', 's', 'd', 's', 4, 0, 0, 1, 0xb0, 'v'};
    const WalkedFile walked(movie_of(""));
    searchESD({kData, 9}, &walked.state);
    EXPECT_EQ(text(walked.state.mpeg4_config), "none");
    searchESD({kData, 10}, &walked.state);
    EXPECT_NE(text(walked.state.mpeg4_config), "none");
}
