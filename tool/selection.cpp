// SPDX-License-Identifier: BSD-2-Clause
#include "tool/selection.h"

#include <assert.h>

#include <algorithm>

static int32_t count_up_to(const KeyFrameList& list, int32_t size) {
    int32_t count = 0;
    for (int32_t i = 0; i < list.run_count; ++i) {
        if (list.runs[i].bytes_read <= size) count += list.runs[i].count;
    }
    return count;
}

// The product has 32 bits; what a wrapped one gives is clamped like any other index.
static int32_t percentile_index(int32_t count, int32_t percentile) {
    const int32_t product =
        static_cast<int32_t>(static_cast<uint32_t>(count) * static_cast<uint32_t>(percentile));
    const int32_t index = static_cast<int32_t>(product / 100.0);
    return index < count ? std::max(index, 0) : count - 1;
}

static int32_t largest_size(const KeyFrameList& list) {
    int32_t largest = 0;
    for (int32_t i = 0; i < list.run_count; ++i) {
        largest = std::max(largest, list.runs[i].bytes_read);
    }
    return largest;
}

// The size of the frame at that index in rising order, by halving the range that it lies in.
static int32_t size_at(const KeyFrameList& list, int32_t index) {
    int32_t low = 0, high = largest_size(list);
    while (low < high) {
        const int32_t middle = low + (high - low) / 2;
        if (count_up_to(list, middle) > index) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return low;
}

// Kept on purpose: exchange-sort
// The exchange sort is a chain of places that each keep the smallest frame they have seen: a frame
// that arrives goes past all that are not greater, takes the place of the first greater one, and
// that one moves on in the same way. So an arriving frame goes to the back of its equals, and sends
// the front of every group of greater ones to the back of that group. Only one group matters here,
// and the frame at a rank in it is found by going through the arrivals backwards.
static int32_t pick_among_equals(const KeyFrameList& list, int32_t frames, int32_t size,
                                 int32_t equal, int32_t rank) {
    for (int32_t i = list.run_count - 1; i >= 0; --i) {
        const KeyFrameRun& run = list.runs[i];
        frames -= run.count;  // in front of the run
        if (run.bytes_read == size) {
            equal -= run.count;
            if (rank >= equal) return frames + rank - equal;
        } else if (run.bytes_read < size && equal != 0) {
            rank = static_cast<int32_t>((int64_t{rank} + run.count) % equal);
        }
    }
    return -1;
}

int32_t selection_pick(const KeyFrameList& list, int32_t percentile) {
    assert(percentile >= 0 && percentile <= 100);
    const int32_t frames = count_up_to(list, INT32_MAX);
    if (frames == 0) return -1;
    const int32_t index = percentile_index(frames, percentile);
    const int32_t size = size_at(list, index);
    const int32_t smaller = size == 0 ? 0 : count_up_to(list, size - 1);
    const int32_t equal = count_up_to(list, size) - smaller;
    return pick_among_equals(list, frames, size, equal, index - smaller);
}
