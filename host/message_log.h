// SPDX-License-Identifier: BSD-2-Clause
// One entry for all diagnostics: filters, formats and writes a line. The thumbnail tool never
// starts the log, so that a call costs it one test.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "runtime/critical_section.h"

constexpr int32_t kLogDebug = 0;
constexpr int32_t kLogTrace = 1;
constexpr int32_t kLogInfo = 2;
constexpr int32_t kLogWarning = 3;
constexpr int32_t kLogError = 4;
constexpr int32_t kLogCritical = 5;

// The sections that this program reports from; there is one bit for each area of the host.
constexpr uint32_t kLogSystem = 1;
constexpr uint32_t kLogScan = 256;

struct LogState {
    int32_t enabled = 1;
    int32_t min_level = kLogError;  // of the sections in section_mask
    uint32_t section_mask = 0;      // sections that are filtered by level
    int32_t started = 0;            // the logging lock exists
    int32_t flush = 0;              // flush after every line
    int32_t service_running = 0;    // the host has come up; levels have their own tags from then
    int32_t old_parts_pending = 0;  // old parts of the log file wait for their removal
    FILE* file = nullptr;           // standard output takes the lines while none is open
    char path[1024] = "";           // of the open file
    void (*critical_hook)(const char* message) = nullptr;  // takes level 5, which else ends the run
    void (*exit_hook)(int status) = nullptr;               // in place of exit
    void (*remove_old_parts)(const char* path) = nullptr;  // runs on a thread of its own
};
extern LogState g_log;
extern CriticalSectionHandle g_log_Section;

// Creates the logging lock and opens the file for appending, if a path is given. Returns 0,
// kUpnpFailed when the lock could not be created (also when the log is started already),
// kUpnpNotThere when the file could not be opened.
int upnp_log_start(const char* path);
// Closes the file and destroys the lock. Returns 0, or kUpnpNotThere when the log was not started.
int upnp_log_stop();

// Nonzero when a message of that level and section passes the filter.
int upnp_log_is_enabled(int32_t level, uint32_t section);

// Logs a message. function may be null; extra asks for a second line with the system's last error
// at levels 4 and 5. Level 5 goes to the console too and ends the process with status 0, unless a
// critical hook is set.
void upnp_log_message(int32_t level, uint32_t section, const char* function, int32_t extra,
                      const char* format, ...) __attribute__((format(printf, 5, 6)));
