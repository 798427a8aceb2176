// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/work_limit.h"

static int64_t g_work_left;   // before the reader gives up; negative once it has
static uint32_t g_read_work;  // of a read from the system

static void grant(int64_t work, uint32_t read_work) {
    g_work_left = work;
    g_read_work = read_work;
}

void mp4_grant_walk() { grant(kWalkWork, 400); }

void mp4_grant_look_ups() { grant(kLookUpWork, 6000); }

bool mp4_spend_work(uint64_t work) {
    if (g_work_left < 0) return false;
    const bool is_granted = work <= static_cast<uint64_t>(g_work_left);
    g_work_left = is_granted ? g_work_left - static_cast<int64_t>(work) : -1;
    return is_granted;
}

bool mp4_spend_read() { return mp4_spend_work(g_read_work); }

bool mp4_is_work_used_up() { return g_work_left < 0; }
