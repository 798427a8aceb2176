// SPDX-License-Identifier: BSD-2-Clause
// Runs a piece of work in a process of its own, and gathers what it writes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <vector>

enum class ChildEnd {
    kExited,       // with exit_status
    kKilled,       // by a signal: a crash, or a limit of the system's
    kTookTooLong,  // and was ended, with all that it started
    kWroteTooMuch,
    kInterrupted,  // this process was asked to end
    kNotStarted,
};

struct ChildResult {
    ChildEnd end = ChildEnd::kNotStarted;
    int exit_status = 0;
    std::vector<uint8_t> output;
};

struct ChildLimits {
    int seconds;       // on the clock, from the start
    size_t max_bytes;  // of output
};

// Calls work(descriptor) in a new process, whose exit status is what it returns, reads what is
// written to the descriptor until its end, and waits for that of the process. Standard streams are
// shared. The child does not outlive
// this process. Nothing may have been left in buffers of stdio.
ChildResult run_child(const std::function<int(int)>& work, const ChildLimits& limits);
