// SPDX-License-Identifier: BSD-2-Clause
// What to do about a video that gives no picture. IN and OUT are for the reader to fill in.
#pragma once

constexpr char kCopyStreams[] = "Copy the streams into a new file: ffmpeg -i IN -c copy OUT.mp4";
constexpr char kCopyTo3gp[] = "Copy the streams into a new file: ffmpeg -i IN -c copy OUT.3gp";
constexpr char kEncodeAgain[] =
    "Encode the video again: ffmpeg -i IN -c:v libx264 -pix_fmt yuv420p OUT.mp4";
constexpr char kDeinterlace[] =
    "Deinterlace it: ffmpeg -i IN -vf yadif -c:v libx264 -pix_fmt yuv420p OUT.mp4";
constexpr char kLookElsewhere[] = "Start at another part of the clip, or take another percentile.";
constexpr char kAskForLess[] = "Ask for fewer key frames, or raise the limit (ulimit -v).";
constexpr char kCopyFileAgain[] = "Copy the file again.";
constexpr char kNothingToDo[] = "";
