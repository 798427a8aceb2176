// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/box_reader.h"

#include "tests/mp4/walked_file.h"

// A track header that tells whether the walk came by.
static const std::string kMark = track_header(7);

TEST(BoxReader, WalkReachesWhatFollowsABox) {
    const auto check = [&](const char* name, const std::string& bytes, bool is_reached) {
        SCOPED_TRACE(name);
        const WalkedFile walked(bytes);
        EXPECT_EQ(walked.context.video_track_id == 7, is_reached);
    };
    check("64-bit media data", large_box("mdat", "12345") + kMark, true);
    check("64-bit container", large_box("moov", kMark), true);
    check("size 0 skips the rest", u32(0) + "mdat" + kMark, false);
    check("container of size 0 holds the rest", u32(0) + "moov" + kMark, true);
    check("size 6 is left after 6 bytes", u32(6) + "ab" + kMark, true);
    check("64-bit size 15", u32(1) + "mdat" + u64(15) + kMark, false);
    check("64-bit size that wraps", u32(1) + "mdat" + u64(UINT64_MAX - 7) + kMark, false);
    check("child past its container", box("moov", u32(999) + "abcd") + kMark, false);
    check("content past its list", box("moov", u32(999) + "mvhd") + kMark, true);
    check("user data of 12 bytes", box("udta", zeros(4)) + kMark, true);
    check("user data that ends in zeros", box("udta", box("abcd") + zeros(4)) + kMark, false);
    check("metadata without version", box("meta", handler("mdir")) + kMark, false);
    check("metadata list runs into what follows",
          box("free", zeros(99)) + full_box("meta", box("ilst", box("\251nam", "abc"))) + kMark,
          true);
    EXPECT_EQ(WalkedFile(zeros(7)).result, 0u);
    EXPECT_EQ(WalkedFile(box("free") + zeros(3)).result, 8u) << "a cut header after others";
}

TEST(BoxReader, MovieHiddenInFreeCountsOnce) {
    const std::string movie = full_box("mvhd", words({0, 0, 10, 50})) + kMark;
    EXPECT_EQ(WalkedFile(box("free", movie)).context.video_track_id, 7u);
    EXPECT_EQ(WalkedFile(box("free", "1234mvhx") + kMark).context.video_track_id, 7u);
    EXPECT_EQ(WalkedFile(box("moov") + box("free", movie)).context.video_track_id, 0u);
}

TEST(BoxReader, ContentIsHeldUntilItsHandlerIsDone) {
    const auto check = [&](const char* name, const std::string& bytes, bool is_held) {
        EXPECT_EQ(WalkedFile(bytes).context.content.is_held, is_held) << name;
    };
    check("run that is not wanted", full_box("trun", words({0})), true);
    check("empty", box("ftyp"), true);
    check("cut", box("free", zeros(99)) + kMark.substr(0, 40), true);
    check("refused", box("ftyp") + box("moov", u32(999) + "tkhd" + zeros(9)), false);
    check("not touched by others", box("ftyp") + large_box("tkhd", zeros(99)) + box("skip"), true);
}

TEST(BoxReader, EveryContentIsReportedInTheNameOfOneFunction) {
    const auto check = [&](const char* message, const std::string& bytes) {
        EXPECT_NE(log_of(bytes).find(std::string("LOG_SCAN: mp4_read_box_content : ") + message),
                  std::string::npos)
            << message;
    };
    check("file seems to be corrupted, box->size= 3e7,", box("moov", u32(999) + "stsd"));
    check("read error nRead = 4\n", box("free", zeros(2000)) + u32(999) + "stsd" + zeros(4));
    check("No Memory to allocate \n", u32(4) + "stsd" + zeros(99));
}
