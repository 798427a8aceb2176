// SPDX-License-Identifier: BSD-2-Clause
// Runs a fuzz target over choices made up from numbers and folders of files, without a fuzzer and
// under any compiler.
// usage: replay COUNT FOLDER...    COUNT made-up inputs, then the files
#include <stdio.h>

#include <filesystem>
#include <random>

#include "fuzz/target.h"
#include "tests/support/temp_folder.h"

static void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// Random but for the second and third byte, which 65536 numbers have go through all values.
static std::string make_up(int number) {
    std::minstd_rand random(static_cast<uint32_t>(number) + 1);
    std::string bytes(3 + random() % 2048, '\0');
    for (char& c : bytes) c = static_cast<char>(random() >> 8);
    bytes[1] = static_cast<char>(number);
    bytes[2] = static_cast<char>(number >> 8);
    return bytes;
}

int main(int argc, char** argv) {
    const int made_up = argc > 1 ? atoi(argv[1]) : 0;
    for (int i = 0; i < made_up; ++i) run(make_up(i));
    int count = 0;
    for (int i = 2; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            run(read_file(entry.path()));
            ++count;
        }
    }
    printf("%d made-up inputs, %d files\n", made_up, count);
    return made_up + count == 0;
}
