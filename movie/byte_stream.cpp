// SPDX-License-Identifier: BSD-2-Clause
#include "movie/byte_stream.h"

#include <algorithm>
#include <iterator>

// Where the first start code begins; the size if there is none.
static size_t start_code_in(std::span<const uint8_t> bytes) {
    static constexpr uint8_t kStartCode[] = {0, 0, 1};
    const auto found =
        std::search(bytes.begin(), bytes.end(), std::begin(kStartCode), std::end(kStartCode));
    return static_cast<size_t>(found - bytes.begin());
}

bool is_byte_stream(std::span<const uint8_t> bytes, uint32_t prefix_size) {
    if (start_code_in(bytes.first(std::min<size_t>(bytes.size(), 4))) > 1) return false;
    while (bytes.size() > prefix_size) {
        size_t length = 0;
        for (uint32_t i = 0; i < prefix_size; ++i) length = length << 8 | bytes[i];
        if (length > bytes.size() - prefix_size) return true;
        bytes = bytes.subspan(prefix_size + length);
    }
    return false;
}

std::span<const uint8_t> take_unit(std::span<const uint8_t>* stream) {
    std::span<const uint8_t> unit;
    while (unit.empty() && stream->size() > 3) {
        // A code's zeros may be many; those after a unit belong to the next code (B.1.1).
        const std::span<const uint8_t> behind =
            stream->subspan(std::min(start_code_in(*stream) + 3, stream->size()));
        unit = behind.first(start_code_in(behind));
        *stream = behind.subspan(unit.size());
        while (!unit.empty() && unit.back() == 0) unit = unit.first(unit.size() - 1);
    }
    return unit;
}

std::vector<uint8_t> with_lengths(std::span<const uint8_t> stream) {
    std::vector<uint8_t> out;
    out.reserve(stream.size() + 64);
    for (std::span<const uint8_t> unit; !(unit = take_unit(&stream)).empty();) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            out.push_back(static_cast<uint8_t>(unit.size() >> shift));
        }
        out.insert(out.end(), unit.begin(), unit.end());
    }
    return out;
}
