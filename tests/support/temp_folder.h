// SPDX-License-Identifier: BSD-2-Clause
// A folder that lives as long as a test, and whole files in and out of it.
#pragma once

#include <string>

class TempFolder {
 public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    // The path of that name in the folder; the file need not exist.
    std::string path(const std::string& name) const { return folder_ + "/" + name; }

 private:
    std::string folder_;
};

bool file_exists(const std::string& path);
// Aborts the test program when the file cannot be written or read.
void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path);
