// SPDX-License-Identifier: BSD-2-Clause
// Ownership over the accounted allocator.
#pragma once

#include <stdint.h>

#include <memory>
#include <type_traits>

#include "runtime/accounted_memory.h"

struct UpnpFree {
    void operator()(void* ptr) const { upnp_free(ptr); }  // unique_ptr never passes null
};

// An array of plain elements that is released with its owner.
template <typename T>
using Owned = std::unique_ptr<T[], UpnpFree>;

// Zero-filled array of count elements, or null. Counts come from files, so the size is checked in
// 64 bits before the allocator multiplies in 32.
template <typename T>
Owned<T> owned_calloc(uint64_t count) {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
    if (count > kUpnpMaxBlock / sizeof(T)) return nullptr;
    return Owned<T>(static_cast<T*>(upnp_calloc(static_cast<uint32_t>(count), sizeof(T))));
}

// The same without the zero-filling, for what is overwritten at once.
template <typename T>
Owned<T> owned_malloc(uint64_t count) {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);
    if (count > kUpnpMaxBlock / sizeof(T)) return nullptr;
    return Owned<T>(static_cast<T*>(upnp_malloc(static_cast<uint32_t>(count * sizeof(T)))));
}
