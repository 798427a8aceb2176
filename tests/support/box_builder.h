// SPDX-License-Identifier: BSD-2-Clause
// Builds ISO base media boxes in code.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

// Big-endian numbers: the low bits of the value.
std::string u16(uint64_t value);
std::string u32(uint64_t value);
std::string u64(uint64_t value);
std::string words(const std::vector<uint64_t>& values);  // 32 bits each
std::string zeros(size_t count);

std::string box(const std::string& type, const std::string& content = "");
std::string large_box(const std::string& type, const std::string& content);  // 64-bit size
// With the word of version and flags in front of the content.
std::string full_box(const std::string& type, const std::string& content, uint32_t flags = 0);

// Sample entries of any type, with boxes after the 78 bytes that all have.
std::string visual_entry_of(const std::string& type, const std::string& boxes = "",
                            uint32_t width = 64, uint32_t height = 48);
std::string avc_configuration(const std::vector<std::string>& sequence_sets,
                              const std::vector<std::string>& picture_sets, int length_size = 4);
// Those with their decoder configuration.
std::string avc_entry(const std::string& sequence_set, const std::string& picture_set,
                      int length_size = 4);
std::string mpeg4_entry(const std::string& decoder_specific_info);
std::string h263_entry();

std::string track_header(uint32_t track_id, uint32_t width = 0, uint32_t height = 0);
std::string media_header(uint32_t time_scale, uint32_t duration);
std::string handler(const std::string& type, const std::string& component = zeros(4));

// A movie box of one video track with these boxes in its media box, after the handler.
std::string movie_of(const std::string& boxes, const std::string& front = handler("vide"));
