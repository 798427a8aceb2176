// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/huge_pages.h"

#include <malloc.h>
#include <stdint.h>
#include <sys/mman.h>

#if defined(M_MMAP_THRESHOLD) && defined(MADV_HUGEPAGE)
HugePages::HugePages(uint64_t size) {
    constexpr uintptr_t kHugePage = 2 << 20;
    constexpr int kMost = 64 << 20;
    constexpr int kLargestHeapBlock = 32 << 20;
    if (size < kHugePage || size > kMost) return;
    const size_t length = static_cast<size_t>(size);
    // Large blocks are to come from the end of the heap too, which is to stay where it is now.
    mallopt(M_MMAP_THRESHOLD, kLargestHeapBlock);
    mallopt(M_TRIM_THRESHOLD, 2 * kMost);
    void* const block = malloc(length + 2 * kHugePage);
    if (!block) return;
    const uintptr_t at = reinterpret_cast<uintptr_t>(block);
    const uintptr_t begin = (at + kHugePage - 1) & -kHugePage;
    const uintptr_t end = (begin + length + kHugePage - 1) & -kHugePage;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    free(block);
    gap_.reset(malloc(begin - at));
}
#else
HugePages::HugePages(uint64_t) {}
#endif
