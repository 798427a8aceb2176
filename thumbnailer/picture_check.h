// SPDX-License-Identifier: BSD-2-Clause
// Whether bytes from another process are what they should be.
#pragma once

#include <stdint.h>

#include <span>

#include "picture/picture_file.h"

// Whether they begin and end as a file of the format does.
bool is_whole_picture(std::span<const uint8_t> bytes, PictureFormat format);
