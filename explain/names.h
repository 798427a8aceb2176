// SPDX-License-Identifier: BSD-2-Clause
// What numbers of streams stand for, in the words that all reports use.
#pragma once

#include <stdint.h>

#include <string>

// H.264 A.2; "unknown" for others.
const char* avc_profile_name(uint32_t profile_idc);
const char* avc_chroma_name(uint32_t chroma_format_idc);  // 0 to 3

std::string time_text(uint64_t ms);  // as in 0:01:02.345
