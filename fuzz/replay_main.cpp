// SPDX-License-Identifier: BSD-2-Clause
// Runs a fuzz target over the inputs of folders and .pack files, and over others made up from them,
// without a fuzzer and under any compiler.
// usage: replay COUNT INPUTS...    with COUNT made-up inputs
//
// The results have to be those that KEYSTILL_EXPECT_RESULTS says, if it is set. A smaller COUNT
// finds the first input with others.
//
// Files are read with the system's functions: what MemorySanitizer has to follow is all in here.
#include <dirent.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "fuzz/target.h"
#include "runtime/byte_order.h"

static std::string read_all(const std::string& path) {
    std::string bytes;
    FILE* const file = fopen(path.c_str(), "rb");
    if (!file) abort();
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, file)) != 0;) {
        bytes.append(block, n);
    }
    fclose(file);
    return bytes;
}

// The files of a folder, by name.
static std::vector<std::string> list(const std::string& folder) {
    std::vector<std::string> paths;
    DIR* const directory = opendir(folder.c_str());
    if (!directory) abort();
    while (const dirent* const entry = readdir(directory)) {
        if (entry->d_name[0] != '.') paths.push_back(folder + "/" + entry->d_name);
    }
    closedir(directory);
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Inputs, each after its 32-bit length.
static void unpack(const std::string& pack, std::vector<std::string>* inputs) {
    for (size_t at = 0; at + 4 <= pack.size(); at += 4 + inputs->back().size()) {
        const size_t length = load_be32(reinterpret_cast<const uint8_t*>(&pack[at]));
        if (length > pack.size() - at - 4) abort();
        inputs->push_back(pack.substr(at + 4, length));
    }
}

static std::vector<std::string> read_inputs(int count, char** paths) {
    std::vector<std::string> inputs;
    for (int i = 0; i < count; ++i) {
        const std::string path = paths[i];
        if (path.ends_with(".pack")) {
            unpack(read_all(path), &inputs);
        } else {
            for (const std::string& file : list(path)) inputs.push_back(read_all(file));
        }
    }
    return inputs;
}

// Random but for the second and third byte, which 65536 numbers have go through all values.
static std::string make_up_freely(int number) {
    std::minstd_rand random(static_cast<uint32_t>(number) + 1);
    std::string bytes(3 + random() % 2048, '\0');
    for (char& c : bytes) c = static_cast<char>(random() >> 8);
    bytes[1] = static_cast<char>(number);
    bytes[2] = static_cast<char>(number >> 8);
    return bytes;
}

// An input with up to four bytes changed, half of them at the start, where most decisions are. One
// in eight is cut off.
static std::string make_up(int number, std::string bytes) {
    std::minstd_rand random(static_cast<uint32_t>(number) + 1);
    for (uint32_t n = 1 + random() % 4; n > 0 && !bytes.empty(); --n) {
        const size_t within = random() % 2 ? bytes.size() : std::min<size_t>(bytes.size(), 106);
        bytes[random() % within] = static_cast<char>(random() >> 8);
    }
    if (random() % 8 == 0) bytes.resize(random() % (bytes.size() + 1));
    return bytes;
}

static void run(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

int main(int argc, char** argv) {
    const int made_up = argc > 1 ? atoi(argv[1]) : 0;
    const std::vector<std::string> inputs = read_inputs(argc - 2, argv + 2);
    const int count = static_cast<int>(inputs.size());
    for (const std::string& input : inputs) run(input);
    for (int i = 0; i < made_up; ++i) {
        run(count == 0 ? make_up_freely(i) : make_up(i, inputs[static_cast<size_t>(i % count)]));
    }
    char results[17];
    snprintf(results, sizeof results, "%016" PRIx64, g_results);
    printf("%d inputs, %d made-up ones, results %s\n", count, made_up, results);
    const char* const expected = getenv("KEYSTILL_EXPECT_RESULTS");
    if (!expected || strcmp(results, expected) == 0) return made_up + count == 0;
    printf("expected %s: something is decoded or refused in another way\n", expected);
    return 1;
}
