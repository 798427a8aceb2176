// SPDX-License-Identifier: BSD-2-Clause
// The work that a file may cost before the container reader gives it up.
#pragma once

#include <stdint.h>

// The reader counts what it does, in units of about a nanosecond, against a grant: files that send
// it over the same bytes for ever are given up. Of the walk's grant a fragmented film of ten hours
// that has sixty fragments a second takes all; of the look-ups' grant a film of a day in which
// every one of sixty samples a second is a key frame and a chunk of its own takes a third, if all
// are collected.
constexpr int64_t kWalkWork = 900'000'000;
constexpr int64_t kLookUpWork = 1'000'000'000;
void mp4_grant_walk();
void mp4_grant_look_ups();

constexpr uint64_t kHeaderWork = 25;        // of a box
constexpr uint64_t kParseAgainWork = 1500;  // of a box that came before its handler
constexpr uint64_t kKeyFrameWork = 30;      // of a key frame that is located
constexpr uint64_t kWordWork = 2;           // of a word in a table

// Takes that off the grant. Returns false when it is used up, now or before.
bool mp4_spend_work(uint64_t work);
// The same for a read from the system. Look-ups may lead to places that nobody has read yet.
bool mp4_spend_read();
bool mp4_is_work_used_up();
