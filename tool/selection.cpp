// SPDX-License-Identifier: BSD-2-Clause
#include "tool/selection.h"

#include <algorithm>

#include "runtime/owned.h"

// The frames of one size, as a circular list of record numbers.
struct EqualFrames {
    Owned<int32_t> next;
    int32_t front = -1;
    int32_t back = -1;
};

static bool is_decodable(const KeyFrame& record) { return record.config && record.sample; }

// Collects the sizes of the frames that can be chosen; returns how many there are.
static int32_t gather_sizes(const KeyFrame* records, int32_t count, int32_t* sizes) {
    int32_t gathered = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (is_decodable(records[i])) sizes[gathered++] = records[i].bytes_read;
    }
    return gathered;
}

// The product has 32 bits; what a wrapped one gives is clamped like any other index.
static int32_t percentile_index(int32_t count, int32_t percentile) {
    const int32_t product =
        static_cast<int32_t>(static_cast<uint32_t>(count) * static_cast<uint32_t>(percentile));
    const int32_t index = static_cast<int32_t>(product / 100.0);
    return index < count ? std::max(index, 0) : count - 1;
}

static void append(EqualFrames* equal, int32_t record) {
    if (equal->front < 0) equal->front = record;
    if (equal->back >= 0) equal->next[equal->back] = record;
    equal->next[record] = equal->front;
    equal->back = record;
}

static void move_front_to_back(EqualFrames* equal) {
    if (equal->front < 0) return;
    equal->back = equal->front;
    equal->front = equal->next[equal->front];
}

// The exchange sort is a chain of places that each keep the smallest frame they have seen: a frame
// that arrives goes past all that are not greater, takes the place of the first greater one, and
// that one moves on in the same way. So an arriving frame goes to the back of its equals, and sends
// the front of every group of greater ones to the back of that group. Only one group matters here.
static const KeyFrame* pick_among_equals(const KeyFrame* records, int32_t count, int32_t size,
                                         int32_t rank, EqualFrames* equal) {
    for (int32_t i = 0; i < count; ++i) {
        if (!is_decodable(records[i])) continue;
        if (records[i].bytes_read == size) append(equal, i);
        if (records[i].bytes_read < size) move_front_to_back(equal);
    }
    int32_t chosen = equal->front;
    while (rank-- > 0) chosen = equal->next[chosen];
    return &records[chosen];
}

const KeyFrame* selection_pick(const KeyFrame* records, int32_t count, int32_t percentile) {
    const Owned<int32_t> sizes = owned_malloc<int32_t>(static_cast<uint64_t>(count));
    EqualFrames equal;
    equal.next = owned_malloc<int32_t>(static_cast<uint64_t>(count));
    if (!sizes || !equal.next) return nullptr;
    const int32_t gathered = gather_sizes(records, count, sizes.get());
    if (gathered == 0) return nullptr;
    std::sort(sizes.get(), sizes.get() + gathered);
    const int32_t index = percentile_index(gathered, percentile);
    const int32_t* const first_equal =
        std::lower_bound(sizes.get(), sizes.get() + gathered, sizes[index]);
    const int32_t rank = static_cast<int32_t>(&sizes[index] - first_equal);
    return pick_among_equals(records, count, sizes[index], rank, &equal);
}
