// SPDX-License-Identifier: BSD-2-Clause
// Puts a finished picture where it belongs, in one step.
#pragma once

#include <stdint.h>

#include <span>
#include <string>

// "-" is standard output. A file is replaced by renaming a new one over it, so that nobody sees
// half of a picture; a symbolic link counts as where it leads. What is no regular file is written
// to, and so is an empty file: thumbnail services make one, keep it open and read it there. Returns
// false when that fails; a file that was replaced then is as it was, an empty one is empty.
bool write_output(const std::string& path, std::span<const uint8_t> bytes);
