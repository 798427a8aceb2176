// SPDX-License-Identifier: BSD-2-Clause
// A command line of keystill's on one file: six bytes choose the numbers and the rest the file.
#pragma once

#include <string>

#include "fuzz/movie_writer.h"
#include "fuzz/target.h"

class ChosenArguments {
 public:
    static constexpr int kCount = 9;
    explicit ChosenArguments(Choices* c) {
        static const uint32_t kValues[6] = {121, 121, 101, 30, 101, 101};
        for (int i = 0; i < 6; ++i) {
            const uint32_t value = c->byte() % kValues[i];
            numbers_[i] = std::to_string(i < 2 ? value * 2 : i == 3 ? value + 1 : value);
            argv_[3 + i] = numbers_[i].c_str();
        }
        argv_[1] = store_file(make_file(c));
    }
    ChosenArguments(const ChosenArguments&) = delete;
    ChosenArguments& operator=(const ChosenArguments&) = delete;
    const char* const* argv() const { return argv_; }

 private:
    std::string numbers_[6];
    const char* argv_[kCount + 1] = {"keystill", "", result_path()};
};
