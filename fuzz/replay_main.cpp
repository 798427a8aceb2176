// SPDX-License-Identifier: BSD-2-Clause
// Runs a fuzz target over choices made up from numbers and folders of files, without a fuzzer and
// under any compiler.
// usage: replay COUNT INPUTS...    COUNT made-up inputs, then those of folders and .pack files
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

static void run(const char* bytes, size_t length) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes), length);
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

static std::vector<char> read_all(const std::string& path) {
    std::vector<char> bytes;
    FILE* const file = fopen(path.c_str(), "rb");
    if (!file) abort();
    char block[4096];
    for (size_t n; (n = fread(block, 1, sizeof block, file)) != 0;) {
        bytes.insert(bytes.end(), block, block + n);
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

// Inputs behind their 32-bit lengths. Returns their number.
static int run_pack(const std::vector<char>& pack) {
    int count = 0;
    for (size_t at = 0; at + 4 <= pack.size(); ++count) {
        const size_t length = load_be32(reinterpret_cast<const uint8_t*>(&pack[at]));
        if (length > pack.size() - at - 4) abort();
        run(pack.data() + at + 4, length);
        at += 4 + length;
    }
    return count;
}

static int run_folder(const std::string& folder) {
    const std::vector<std::string> paths = list(folder);
    for (const std::string& path : paths) {
        const std::vector<char> bytes = read_all(path);
        run(bytes.data(), bytes.size());
    }
    return static_cast<int>(paths.size());
}

int main(int argc, char** argv) {
    const int made_up = argc > 1 ? atoi(argv[1]) : 0;
    for (int i = 0; i < made_up; ++i) {
        const std::string bytes = make_up(i);
        run(bytes.data(), bytes.size());
    }
    int count = 0;
    for (int i = 2; i < argc; ++i) {
        const std::string path = argv[i];
        const bool is_pack = path.size() > 5 && path.compare(path.size() - 5, 5, ".pack") == 0;
        count += is_pack ? run_pack(read_all(path)) : run_folder(path);
    }
    char results[17];
    snprintf(results, sizeof results, "%016" PRIx64, g_results);
    printf("%d made-up inputs, %d from files, results %s\n", made_up, count, results);
    const char* const expected = getenv("KEYSTILL_EXPECT_RESULTS");
    if (!expected || strcmp(results, expected) == 0) return made_up + count == 0;
    printf("expected %s: something is decoded or refused in another way\n", expected);
    return 1;
}
