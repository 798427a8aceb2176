// SPDX-License-Identifier: BSD-2-Clause
// The whole program on one file. Six bytes choose the arguments and the rest the file.
#include "fuzz/choices.h"
#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "tool/run_keystill.h"

const size_t g_file_start = 7;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices c(data, size);
    std::string numbers[6];
    const uint32_t kMost[6] = {120, 120, 100, 30, 100, 100};
    for (int i = 0; i < 6; ++i) {
        uint32_t value = c.byte() % (kMost[i] + 1);
        if (i < 2) value = value * 2;
        if (i == 3) value += 1;
        numbers[i] = std::to_string(value);
    }
    const MemoryFile file(make_file(&c));
    const char* const argv[] = {"keystill",         file.path(),
                                "/dev/null",        numbers[0].c_str(),
                                numbers[1].c_str(), numbers[2].c_str(),
                                numbers[3].c_str(), numbers[4].c_str(),
                                numbers[5].c_str(), nullptr};
    const int status = run_keystill(9, argv);
    if (status != 0 && status != 1) abort();
    check_memory();
    return 0;
}
