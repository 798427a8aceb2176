// SPDX-License-Identifier: BSD-2-Clause
#include "runtime/accounted_memory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "runtime/critical_section.h"
#include "runtime/upnp_status.h"

int64_t g_memUsed = 0;
int64_t g_memPeak = 0;
static CriticalSectionHandle g_mem_section = nullptr;

// Stands directly in front of every block; 8 bytes keep the block as aligned as the system's.
struct BlockHeader {
    uint32_t size;    // as asked for
    uint32_t unused;  // never written
};
static_assert(sizeof(BlockHeader) == 8);

constexpr size_t kResizeSurplus = 10;  // a resized block is 2 bytes longer than a fresh one

static BlockHeader* header_of(void* ptr) { return static_cast<BlockHeader*>(ptr) - 1; }

static void count_added(uint32_t size) {
    g_memUsed += size;
    if (g_memPeak < g_memUsed) g_memPeak = g_memUsed;
}

static void count_removed(uint32_t size, const char* function) {
    g_memUsed -= size;
    if (function && g_memUsed < 0) {
        fprintf(stderr, "%s: g_memUsed < 0 (%lld)\n", function, static_cast<long long>(g_memUsed));
    }
}

// Makes a fresh system block the caller's: records the size and counts it. Null stays null.
static void* hand_out(BlockHeader* header, uint32_t size) {
    if (!header) return nullptr;
    header->size = size;
    upnp_critical_section_enter(&g_mem_section);
    count_added(size);
    upnp_critical_section_leave(&g_mem_section);
    return header + 1;
}

int upnp_memory_init() {
    if (upnp_critical_section_create(&g_mem_section) != 0) return kUpnpFailed;
    g_memUsed = 0;
    g_memPeak = 0;
    return 0;
}

int upnp_memory_exit() { return upnp_critical_section_destroy(&g_mem_section); }

void* upnp_malloc(uint32_t size) {
    if (size > kUpnpMaxBlock) return nullptr;
    return hand_out(static_cast<BlockHeader*>(malloc(size + sizeof(BlockHeader))), size);
}

void* upnp_calloc(uint32_t count, uint32_t size) {
    const uint32_t total = count * size;
    if (total > kUpnpMaxBlock) return nullptr;
    // The system's own clearing leaves the pages of a large block untouched until they are used:
    // asking for many key frame records costs address space, not memory.
    return hand_out(static_cast<BlockHeader*>(calloc(1, total + sizeof(BlockHeader))), total);
}

void* upnp_realloc(void* ptr, uint32_t size) {
    if (size > kUpnpMaxBlock) return nullptr;
    if (!ptr) return upnp_malloc(size);
    const uint32_t old_size = header_of(ptr)->size;
    BlockHeader* const header =
        static_cast<BlockHeader*>(realloc(header_of(ptr), size + kResizeSurplus));
    if (header) header->size = size;
    upnp_critical_section_enter(&g_mem_section);
    // Kept on purpose: refused-resize-uncounts
    // A refused block is the caller's still, but not counted any more.
    count_removed(old_size, header ? "upnp_realloc" : nullptr);
    if (header) count_added(size);
    upnp_critical_section_leave(&g_mem_section);
    return header ? header + 1 : nullptr;
}

void upnp_free(void* ptr) {
    if (!ptr) {
        fputs("upnp_free: NULL pointer\n", stderr);
        return;
    }
    BlockHeader* const header = header_of(ptr);
    upnp_critical_section_enter(&g_mem_section);
    count_removed(header->size, "upnp_free");
    upnp_critical_section_leave(&g_mem_section);
    free(header);
}

char* upnp_strndup(const char* text, uint32_t max_length) {
    if (!text) return nullptr;
    const size_t length = strnlen(text, max_length);
    if (length >= kUpnpMaxBlock) return nullptr;
    char* const copy = static_cast<char*>(upnp_malloc(static_cast<uint32_t>(length + 1)));
    if (!copy) return nullptr;
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

char* upnp_strdup(const char* text) {
    if (!text) return nullptr;
    const size_t length = strlen(text);
    return length < kUpnpMaxBlock ? upnp_strndup(text, static_cast<uint32_t>(length)) : nullptr;
}
