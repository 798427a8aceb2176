// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/temp_folder.h"

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

TempFolder::TempFolder() : folder_(std::filesystem::temp_directory_path() / "keystill-XXXXXX") {
    if (!mkdtemp(folder_.data())) abort();
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

bool file_exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void write_file(const std::string& path, const std::string& bytes) {
    if (!(std::ofstream(path, std::ios::binary) << bytes << std::flush)) abort();
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) abort();
    return {std::istreambuf_iterator<char>(file), {}};
}
