// SPDX-License-Identifier: BSD-2-Clause
// Has the fuzzer change whole boxes of inputs that are files, at every second mutation.
#include <random>

#include "fuzz/movie_writer.h"
#include "fuzz/target.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t most);

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed) {
    const bool is_file = size > g_file_start && data[g_file_start - 1] % 4 == 0;
    if (!is_file || seed % 2 == 0) return LLVMFuzzerMutate(data, size, most);
    std::minstd_rand random(seed);
    uint8_t bytes[400];
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random() >> 8);
    Choices choices(bytes, sizeof bytes);
    std::string file(data + g_file_start, data + size);
    for (uint32_t i = 1 + choices.byte() % 3; i > 0; --i) change_box(&choices, &file);
    file.resize(std::min(file.size(), most - g_file_start));
    std::copy(file.begin(), file.end(), data + g_file_start);
    return g_file_start + file.size();
}
