// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_scan.h"

#include "m4vdec/m4v_edges.h"
#include "m4vdec/m4v_idct.h"

namespace {

// Scan index of each coefficient, row v of the table holding u = 0 to 7.
// clang-format off
constexpr uint8_t kZigzagOrder[64] = {
     0,  1,  5,  6, 14, 15, 27, 28,
     2,  4,  7, 13, 16, 26, 29, 42,
     3,  8, 12, 17, 25, 30, 41, 43,
     9, 11, 18, 24, 31, 40, 44, 53,
    10, 19, 23, 32, 39, 45, 52, 54,
    20, 22, 33, 38, 46, 51, 55, 60,
    21, 34, 37, 47, 50, 56, 59, 61,
    35, 36, 48, 49, 57, 58, 62, 63,
};
constexpr uint8_t kVerticalOrder[64] = {
     0,  4,  6, 20, 22, 36, 38, 52,
     1,  5,  7, 21, 23, 37, 39, 53,
     2,  8, 19, 24, 34, 40, 50, 54,
     3,  9, 18, 25, 35, 41, 51, 55,
    10, 17, 26, 30, 42, 46, 56, 60,
    11, 16, 27, 31, 43, 47, 57, 61,
    12, 15, 28, 32, 44, 48, 58, 62,
    13, 14, 29, 33, 45, 49, 59, 63,
};
// clang-format on

constexpr M4vScan make_scan(const uint8_t (&order)[64], bool is_transposed) {
    M4vScan scan{};
    for (unsigned u = 0; u < 8; ++u) {
        for (unsigned v = 0; v < 8; ++v) {
            const unsigned i = is_transposed ? order[u * 8 + v] : order[v * 8 + u];
            scan.position[i] = static_cast<uint8_t>(m4v_position(u, v));
            scan.edge_slot[i] = static_cast<uint8_t>(u == 0 ? v : v == 0 ? 8 + u : kEdgeNoSlot);
            scan.width[i] = static_cast<uint8_t>(u + 1);
            scan.height[i] = static_cast<uint8_t>(v + 1);
        }
    }
    for (unsigned i = 1; i < 64; ++i) {
        if (scan.width[i] < scan.width[i - 1]) scan.width[i] = scan.width[i - 1];
        if (scan.height[i] < scan.height[i - 1]) scan.height[i] = scan.height[i - 1];
    }
    return scan;
}

}  // namespace

constinit const M4vScan kScanZigzag = make_scan(kZigzagOrder, false);
constinit const M4vScan kScanHorizontal = make_scan(kVerticalOrder, true);
constinit const M4vScan kScanVertical = make_scan(kVerticalOrder, false);

const M4vMbEdge kMissingMbEdge = {{{{kMissingDc}},
                                   {{kMissingDc}},
                                   {{kMissingDc}},
                                   {{kMissingDc}},
                                   {{kMissingDc}},
                                   {{kMissingDc}}},
                                  0,
                                  1};
