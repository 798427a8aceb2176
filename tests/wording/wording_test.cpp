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
}

TEST(Wording, CodecsHaveNames) {
    EXPECT_STREQ(codec_name("hvc1").name, "HEVC");
    EXPECT_STREQ(codec_name("rle ").name, "QuickTime Animation");
    EXPECT_STREQ(codec_name("abcd").name, "");
    EXPECT_STREQ(codec_name("").name, "");
}

TEST(Printable, TextOfStrangersIsValidAndSeen) {
    // clang-format off
    static const std::pair<std::string, const char*> kCases[] = {
        {"", ""}, {"plain text, 100 %", "plain text, 100 %"},
        {"\303\237e \346\227\245 \360\237\216\254", "\303\237e \346\227\245 \360\237\216\254"},
        {"\251too", R"(\xa9too)"}, {std::string("a\0b", 3), R"(a\x00b)"},
        {"\33[31m\r\n\t\177", R"(\x1b[31m\x0d\x0a\x09\x7f)"}, {R"(C:\x41)", R"(C:\\x41)"},
        {"\302\23331m", R"(\xc2\x9b31m)"},                      // CSI as a character
        {"\342\200\256gpj.exe", R"(\xe2\x80\xaegpj.exe)"},      // right-to-left override
        {"\363\240\201\201", R"(\xf3\xa0\x81\x81)"},            // a tag
        {"\346\227", R"(\xe6\x97)"},                            // cut off
        {"\300\257\340\200\257", R"(\xc0\xaf\xe0\x80\xaf)"},    // longer than need be
        {"\355\240\200\364\220\200\200", R"(\xed\xa0\x80\xf4\x90\x80\x80)"},  // no characters
        {"\200\377\346a", R"(\x80\xff\xe6a)"}, {"\370\210\200\200", R"(\xf8\x88\x80\x80)"},
    };
    // clang-format on
    for (const auto& [text, want] : kCases) EXPECT_EQ(printable(text), want);
}
