// SPDX-License-Identifier: BSD-2-Clause
// The whole program on one file. Six bytes choose the arguments and the rest the file.
#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "tool/run_keystill.h"

void run_target(Choices* c) {
    static const uint32_t kValues[6] = {121, 121, 101, 30, 101, 101};
    std::string numbers[6];
    const char* argv[10] = {"keystill", "", result_path()};
    for (int i = 0; i < 6; ++i) {
        const uint32_t value = c->byte() % kValues[i];
        numbers[i] = std::to_string(i < 2 ? value * 2 : i == 3 ? value + 1 : value);
        argv[3 + i] = numbers[i].c_str();
    }
    argv[1] = store_file(make_file(c));
    const int status = run_keystill(9, argv);
    if (status != 0 && status != 1) abort();
    note_result(status);
    note_result_file();
}
