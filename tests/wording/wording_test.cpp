// SPDX-License-Identifier: BSD-2-Clause
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "wording/codec_names.h"
#include "wording/decoder_wording.h"
#include "wording/printable.h"

static void expect_to_be_a_sentence(const Wording& wording, std::set<std::string>* seen) {
    const std::string& text = wording.sentence;
    EXPECT_NE(wording.kind, RefusalKind::kNone) << text;
    ASSERT_FALSE(text.empty());
    EXPECT_TRUE(isupper(text.front()) && text.back() == '.') << text;
    EXPECT_EQ(text.find_first_of("%{}"), std::string::npos) << text;
    EXPECT_TRUE(seen->insert(text).second) << "twice: " << text;
}

TEST(Wording, EachReasonOfADecoderHasASentenceOfItsOwn) {
    std::set<std::string> of_m4v, of_avc;
    for (int i = 1; i <= static_cast<int>(kM4vLastRefusal); ++i) {
        expect_to_be_a_sentence(wording_of(static_cast<M4vRefusal>(i)), &of_m4v);
    }
    for (int i = 1; i <= static_cast<int>(kAvcLastRefusal); ++i) {
        expect_to_be_a_sentence(wording_of(AvcRefused{static_cast<AvcRefusal>(i)}), &of_avc);
    }
    EXPECT_EQ(wording_of(AvcRefused{AvcRefusal::kChromaFormat, 2}).sentence,
              "The H.264 stream is 4:2:2; only 4:2:0 and monochrome pictures are decoded.");
    EXPECT_NE(wording_of(AvcRefused{AvcRefusal::kSwitchingSlice, 4}).sentence.find(" (SI),"),
              std::string::npos);
    EXPECT_NE(wording_of(AvcRefused{AvcRefusal::kBitDepth, 10}).sentence.find(" 10-bit "),
              std::string::npos);
}

TEST(Wording, CodecsHaveNames) {
    EXPECT_STREQ(codec_name("hvc1").name, "HEVC");
    EXPECT_STREQ(codec_name("rle ").name, "QuickTime Animation");
    EXPECT_STREQ(codec_name("abcd").name, "");
    EXPECT_STREQ(codec_name("").name, "");
}

TEST(Printable, TextOfStrangersIsValidAndSeen) {
    static const struct {
        std::string text, want;
    } kCases[] = {
        {"plain text, 100 %", "plain text, 100 %"},
        {"Stra\xc3\x9f"
         "e \xe6\x97\xa5 \xf0\x9f\x8e\xac",
         "Stra\xc3\x9f"
         "e \xe6\x97\xa5 \xf0\x9f\x8e\xac"},
        {"\xa9too", "\\xa9too"},
        {std::string("a\0b", 3),
         "a\\x00"
         "b"},
        {"\x1b[31m\r\n\t\x7f", "\\x1b[31m\\x0d\\x0a\\x09\\x7f"},
        {"\xc2\x9b"
         "31m",
         "\\xc2\\x9b"
         "31m"},                                            // CSI as a character
        {"\xe2\x80\xaegpj.exe", "\\xe2\\x80\\xaegpj.exe"},  // right-to-left override
        {"\xf3\xa0\x81\x81", "\\xf3\\xa0\\x81\\x81"},       // a tag
        {"C:\\x41", "C:\\\\x41"},
        {"\xe6\x97", "\\xe6\\x97"},                             // cut off
        {"\xc0\xaf\xe0\x80\xaf", "\\xc0\\xaf\\xe0\\x80\\xaf"},  // longer than need be
        {"\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},  // no characters
        {"\x80\xff\xe6"
         "a",
         "\\x80\\xff\\xe6"
         "a"},
        {"", ""},
    };
    for (const auto& c : kCases) EXPECT_EQ(printable(c.text), c.want);
}
