// SPDX-License-Identifier: BSD-2-Clause
// What tests need in order to call programs, or parts of them, as a system does.
#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

// A program's name and arguments, as main() gets them, for as long as this lives.
class CommandLine {
 public:
    CommandLine(const char* program, std::vector<std::string> words) : words_(std::move(words)) {
        words_.insert(words_.begin(), program);
        for (std::string& word : words_) pointers_.push_back(word.data());
        pointers_.push_back(nullptr);
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    int argc() const { return static_cast<int>(words_.size()); }
    char** argv() { return pointers_.data(); }

 private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

// Calls it with a stream, and returns what it has written there.
inline std::string written_by(const std::function<void(FILE*)>& write) {
    char* bytes = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&bytes, &length);
    write(file);
    fclose(file);
    const std::string out(bytes, length);
    free(bytes);
    return out;
}

// Calls it in a process of its own. Returns the exit status, which is what it returns; -1, and a
// failure of the test, when a signal ends it.
int status_apart(const std::function<int()>& work);
