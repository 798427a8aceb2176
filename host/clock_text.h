// SPDX-License-Identifier: BSD-2-Clause
// Times as text, and waiting.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Sleeps for that many milliseconds. Always returns 0.
int upnp_sleep_ms(int32_t milliseconds);

// Writes the local time as "2026-11-15 00:04:40:123 " (with the trailing blank), or ":000 " when
// the clock cannot be read; cut to the buffer and terminated.
void upnp_log_time_stamp(char* buffer, size_t size);

// Writes seconds since the epoch as local time, "2026-11-15T00:04:40". Writes nothing when the
// conversion fails.
void upnp_time_to_local_iso(uint32_t seconds, char* buffer, size_t size);
