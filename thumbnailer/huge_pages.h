// SPDX-License-Identifier: BSD-2-Clause
// Memory for a large picture in few pages: the first touch of each page costs a fault.
#pragma once

#include <stdint.h>
#include <stdlib.h>

#include <memory>

struct FreeBlock {
    void operator()(void* block) const { free(block); }
};

// While it lives, the next blocks from the heap, of `size` bytes in all, come in huge pages where
// the kernel has them for those who ask. Sizes that gain nothing by it are left alone.
class HugePages {
 public:
    explicit HugePages(uint64_t size);

 private:
    std::unique_ptr<void, FreeBlock> gap_;  // up to where a huge page starts; never touched
};
