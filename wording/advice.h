// SPDX-License-Identifier: BSD-2-Clause
// What to do about a video that gives no picture, a line for each way, the cheapest first. IN and
// OUT are for the reader to fill in, -ss T for the report, which knows how long the video is.
// A stream 0:V:0 is the first video that is no cover picture.
#pragma once

// Of a single picture there would be a key frame table with every picture in it, which is left out
// then: there have to be two, the second a copy of the first if the video has no more.
#define KEYSTILL_ENCODE_ONE(filters)             \
    "ffmpeg -ss T -i IN -map 0:V:0 -vf " filters \
    "tpad=stop=1:stop_mode=clone -frames:v 2 -c:v libx264 -pix_fmt yuv420p"
#define KEYSTILL_ANY_PICTURE "One picture: keystill-thumbnailer --fallback auto -i IN -o OUT.jpg\n"

constexpr char kAdviceTime[] = "-ss T ";
constexpr char kCopyStreams[] =
    "A minute of it: ffmpeg -i IN -map 0:V:0 -t 60 -c copy OUT.mp4\n"
    "All of it: ffmpeg -i IN -c copy OUT.mp4";
constexpr char kCopyLarge[] =
    "A minute of it: ffmpeg -i IN -map 0:V:0 -t 60 -c copy OUT.mp4\n"
    "All of it, which only helps below 4 GiB: ffmpeg -i IN -c copy OUT.mp4";
// Samples with parameter sets, as a stream that has them in its description too.
constexpr char kCopySets[] =
    "A minute of it: ffmpeg -i IN -map 0:V:0 -t 60 -c copy -bsf:v h264_mp4toannexb -tag:v avc1 "
    "OUT.mp4\n"
    "All of it: ffmpeg -i IN -c copy -bsf:v h264_mp4toannexb -tag:v avc1 OUT.mp4";
constexpr char kCopyTo3gp[] =
    "A minute of it: ffmpeg -i IN -map 0:V:0 -t 60 -c copy OUT.3gp\n"
    "All of it: ffmpeg -i IN -map 0:V:0 -c copy OUT.3gp";
constexpr char kEncodeAgain[] =
    KEYSTILL_ANY_PICTURE "One picture: " KEYSTILL_ENCODE_ONE("")
                         " OUT.mp4\n"
                         "All of it: ffmpeg -i IN -c:v libx264 -pix_fmt yuv420p OUT.mp4";
constexpr char kDeinterlace[] =
    KEYSTILL_ANY_PICTURE "One picture: " KEYSTILL_ENCODE_ONE("yadif,")
                         " OUT.mp4\n"
                         "All of it: ffmpeg -i IN -vf yadif -c:v libx264 -pix_fmt yuv420p OUT.mp4";
constexpr char kOtherFile[] =
    KEYSTILL_ANY_PICTURE "One picture: " KEYSTILL_ENCODE_ONE("")
                         " OUT.mp4\n"
                         "All of it, if its codec is one of MP4: ffmpeg -i IN -c copy OUT.mp4\n"
                         "All of it: ffmpeg -i IN -c:v libx264 -pix_fmt yuv420p OUT.mp4";
constexpr char kAddSegments[] =
    "Put its segments behind it: cat IN SEGMENT... > OUT.mp4\n"
    "Then one picture: keystill-thumbnailer --fallback auto -i OUT.mp4 -o OUT.jpg";
// For what is damaged: other decoders show something of it.
constexpr char kDecodeAnyway[] = "One picture: " KEYSTILL_ENCODE_ONE("") " OUT.mp4";
constexpr char kLookElsewhere[] = "Start at another part of the clip, or take another percentile.";
constexpr char kAskForLess[] = "Ask for fewer key frames, or raise the limit (ulimit -v).";
constexpr char kCopyFileAgain[] = "Copy the file again.";
constexpr char kNothingToDo[] = "";
