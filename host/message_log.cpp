// SPDX-License-Identifier: BSD-2-Clause
#include "host/message_log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include "host/clock_text.h"
#include "host/threads.h"
#include "runtime/accounted_memory.h"
#include "runtime/upnp_status.h"

LogState g_log;
CriticalSectionHandle g_log_Section = nullptr;
static char g_message_buffer[1024];  // the fall-back text, and what the critical hook gets
static char g_prefix_buffer[256];    // guarded by g_log_Section

static const char* level_tag(int32_t level) {
    static const char* const kTags[] = {"[Debug]",   "[Trace]", "[Info]",
                                        "[Warning]", "[Error]", "[Critical]"};
    if (level < kLogDebug || level > kLogCritical) return "?";
    return g_log.service_running ? kTags[level] : "[Startup]";
}

static const char* section_name(uint32_t section) {
    static const char* const kNames[] = {
        "LOG_SYSTEM",   "LOG_SSDP", "LOG_DB",       "LOG_HTTP",  "LOG_CLIENT_DB",
        "LOG_EVENTING", "LOG_XML",  "LOG_PLUGIN",   "LOG_SCAN",  "LOG_RMEDIA",
        "LOG_VELQUARO", "LOG_CGI",  "LOG_LINKPROT", "LOG_TUNER", "LOG_PROXY"};
    for (uint32_t i = 0; i < sizeof kNames / sizeof *kNames; ++i) {
        if (section == 1u << i) return kNames[i];
    }
    return "?";
}

static void format_prefix(char* buffer, size_t size, int32_t level, uint32_t section) {
    char time_stamp[32];
    upnp_log_time_stamp(time_stamp, sizeof time_stamp);
    snprintf(buffer, size, "%s %s - %s: ", time_stamp, level_tag(level), section_name(section));
}

static void* upnp_log_remove_old_parts_thread(void*) {
    if (g_log.remove_old_parts) g_log.remove_old_parts(g_log.path);
    return nullptr;
}

// Claims the pending removal; the caller holds the logging lock.
static bool take_pending_removal() {
    if (!g_log.old_parts_pending || !g_log.service_running) return false;
    g_log.old_parts_pending = 0;
    return true;
}

static bool has_credentials(const char* text) {
    return strstr(text, "WWW-Authenticate") || strstr(text, "WWW-Authorization");
}

static bool is_writing() { return g_log.enabled && g_log.started; }

static void write_line(int32_t level, uint32_t section, const char* text) {
    if (!is_writing() || !text) return;
    upnp_critical_section_enter(&g_log_Section);
    format_prefix(g_prefix_buffer, sizeof g_prefix_buffer, level, section);
    FILE* const out = g_log.file ? g_log.file : stdout;
    if (has_credentials(text)) text = "[HTTP Authentication details not logged]";
    fprintf(out, "%s%s\n", g_prefix_buffer, text);
    if (g_log.flush) fflush(out);
    const bool remove_old_parts = take_pending_removal();
    upnp_critical_section_leave(&g_log_Section);
    // Not under the lock: a failing start logs, and would wait for itself.
    if (remove_old_parts && upnp_start_thread(upnp_log_remove_old_parts_thread, nullptr, 5) != 0) {
        puts("can't start upnp_log_remove_old_parts thread");
    }
}

static void write_console(int32_t level, uint32_t section, const char* text) {
    char prefix[sizeof g_prefix_buffer];
    format_prefix(prefix, sizeof prefix, level, section);
    printf("%s%s\r\n", prefix, text);
    fflush(stdout);
}

static void write_system_error(int32_t level, uint32_t section, int error) {
    char text[160];
    snprintf(text, sizeof text, "system error %d: %s", error, strerror(error));
    write_line(level, section, text);
}

// Formats into a block of the right size, which the caller releases. Null when there is none.
__attribute__((format(printf, 1, 0))) static char* format_text(const char* format, va_list args) {
    va_list measured;
    va_copy(measured, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the caller has started args
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) return nullptr;
    char* const text = static_cast<char*>(upnp_malloc(static_cast<uint32_t>(length) + 1));
    if (text) vsnprintf(text, static_cast<size_t>(length) + 1, format, args);
    return text;
}

__attribute__((format(printf, 1, 2))) static char* format_joined(const char* format, ...) {
    va_list args;
    va_start(args, format);
    char* const text = format_text(format, args);
    va_end(args);
    return text;
}

// The message, with the function's name around it if there is one; null without memory.
__attribute__((format(printf, 3, 0))) static char* format_message(int32_t level,
                                                                  const char* function,
                                                                  const char* format,
                                                                  va_list args) {
    char* const message = format_text(format, args);
    if (!message || !function) return message;
    char* const joined = level == kLogCritical ? format_joined("%s (%s)", message, function)
                                               : format_joined("%s : %s", function, message);
    upnp_free(message);
    return joined;
}

static void end_on_critical(uint32_t section, const char* text) {
    write_console(kLogCritical, section, text);
    if (text != g_message_buffer) {
        snprintf(g_message_buffer, sizeof g_message_buffer, "%s", text);
    }
    if (g_log.critical_hook) {
        g_log.critical_hook(g_message_buffer);
        return;
    }
    (g_log.exit_hook ? g_log.exit_hook : exit)(0);
}

static void report_thread_start(bool is_error, const char* message) {
    upnp_log_message(is_error ? kLogError : kLogWarning, kLogSystem,
                     "upnp_start_joinable_thread_impl", 0, "%s", message);
}

int upnp_log_start(const char* path) {
    if (upnp_critical_section_create(&g_log_Section) != 0) return kUpnpFailed;
    if (path) {
        snprintf(g_log.path, sizeof g_log.path, "%s", path);
        g_log.file = fopen(g_log.path, "ab");
        if (!g_log.file) {
            upnp_critical_section_destroy(&g_log_Section);
            return kUpnpNotThere;
        }
    }
    g_log.started = 1;
    g_threadReporter = report_thread_start;
    return 0;
}

int upnp_log_stop() {
    g_log.started = 0;
    if (g_log.file) fclose(g_log.file);
    g_log.file = nullptr;
    return upnp_critical_section_destroy(&g_log_Section);
}

int upnp_log_is_enabled(int32_t level, uint32_t section) {
    if (section & g_log.section_mask) return level >= g_log.min_level;
    return level == kLogCritical || !g_log.service_running;
}

void upnp_log_message(int32_t level, uint32_t section, const char* function, int32_t extra,
                      const char* format, ...) {
    const int error = errno;
    const bool is_critical = level == kLogCritical;
    const bool is_written = is_writing() && upnp_log_is_enabled(level, section);
    if (!is_written && !is_critical) return;

    if (!format) format = "strMessage = NULL!";
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    char* const owned = format_message(level, function, format, args);
    if (!owned) vsnprintf(g_message_buffer, sizeof g_message_buffer, format, again);
    va_end(again);
    va_end(args);

    const char* const text = owned ? owned : g_message_buffer;
    if (is_written) write_line(level, section, text);
    if (is_written && extra && level >= kLogError) write_system_error(level, section, error);
    if (is_critical) end_on_critical(section, text);
    if (owned) upnp_free(owned);
}
