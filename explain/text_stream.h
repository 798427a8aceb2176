// SPDX-License-Identifier: BSD-2-Clause
// Text that is written as to a file.
#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <string>

class TextStream {
 public:
    TextStream() : file_(open_memstream(&text_, &length_)) {}
    ~TextStream() {
        if (file_) fclose(file_);
        free(text_);
    }
    TextStream(const TextStream&) = delete;
    TextStream& operator=(const TextStream&) = delete;
    FILE* file() { return file_; }
    // What was written until then.
    std::string take() {
        fflush(file_);
        return std::string(text_, length_);
    }

 private:
    char* text_ = nullptr;
    size_t length_ = 0;
    FILE* file_;  // behind what it is opened with
};
