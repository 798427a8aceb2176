// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/temp_folder.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>

static FILE* open_or_abort(const std::string& path, const char* mode) {
    FILE* const file = fopen(path.c_str(), mode);
    if (!file) {
        perror(path.c_str());
        abort();
    }
    return file;
}

TempFolder::TempFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "keystill-XXXXXX";
    if (!mkdtemp(pattern.data())) abort();
    folder_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

bool file_exists(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
}

void write_file(const std::string& path, const std::string& bytes) {
    FILE* const file = open_or_abort(path, "wb");
    if (fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) abort();
    if (fclose(file) != 0) abort();
}

std::string read_file(const std::string& path) {
    FILE* const file = open_or_abort(path, "rb");
    std::string bytes;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, file)) > 0;) bytes.append(buffer, n);
    fclose(file);
    return bytes;
}
