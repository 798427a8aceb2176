// SPDX-License-Identifier: BSD-2-Clause
// Runs a fuzz target over files, folders of files, and choices made up from numbers, without a
// fuzzer and under any compiler.
// usage: replay COUNT PATH...    COUNT made-up inputs, then the paths
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <vector>

#include "fuzz/target.h"
#include "tests/support/temp_folder.h"

static void run(const std::string& bytes) {
    const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

static int run_path(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        run(read_file(path));
        return 1;
    }
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        count += run_path(entry.path());
    }
    return count;
}

// The first bytes are random and the rest repeats itself, as writers like it.
static std::string make_up(uint32_t number) {
    std::mt19937 random(number);
    std::string bytes(random() % 2048, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    if (!bytes.empty()) bytes[0] = static_cast<char>(bytes[0] | 1);
    return bytes;
}

int main(int argc, char** argv) {
    const int made_up = argc > 1 ? atoi(argv[1]) : 0;
    for (int i = 0; i < made_up; ++i) run(make_up(static_cast<uint32_t>(i)));
    int count = 0;
    for (int i = 2; i < argc; ++i) count += run_path(argv[i]);
    printf("%d made-up inputs, %d files\n", made_up, count);
    return made_up + count == 0;
}
