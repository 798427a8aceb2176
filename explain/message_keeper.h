// SPDX-License-Identifier: BSD-2-Clause
// Listens to the log of the container reader and keeps what a person would read of it: the memory
// does not grow with what is said, and the log is turned off when it says too much.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include <string>
#include <vector>

class MessageKeeper {
 public:
    // A stream for the log, which has to be closed before the keeper goes; null without memory.
    FILE* open_stream();
    // To be called when the stream is closed.
    void print(FILE* out) const;

 private:
    static ssize_t write(void* keeper, const char* bytes, size_t length);
    void end_line();

    std::string line_;  // the start of the one that is being written
    std::string last_;  // message, which is not kept again when it is repeated
    std::vector<std::string> kept_;
    uint64_t left_out_ = 0;
    uint64_t lines_ = 0;
};
