// SPDX-License-Identifier: BSD-2-Clause
#include <unistd.h>

#include "fuzz/target.h"
#include "tests/support/temp_folder.h"

static const std::string& path() {
    static const TempFolder folder;
    static const std::string path = folder.path("result");
    return path;
}

const char* result_path() { return path().c_str(); }

void note_result_file() {
    if (!file_exists(path())) return note_result(0);
    const std::string bytes = read_file(path());
    note_result(bytes.data(), bytes.size());
    unlink(path().c_str());
}
