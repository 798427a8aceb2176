// SPDX-License-Identifier: BSD-2-Clause
#include "host/clock_text.h"

#include <stdio.h>
#include <sys/time.h>
#include <time.h>

int upnp_sleep_ms(int32_t milliseconds) {
    const timespec wait = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    nanosleep(&wait, nullptr);
    return 0;
}

void upnp_log_time_stamp(char* buffer, size_t size) {
    char date[20] = "";
    long milliseconds = 0;
    timeval now;
    tm local;
    if (gettimeofday(&now, nullptr) == 0 && localtime_r(&now.tv_sec, &local)) {
        strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
        milliseconds = static_cast<long>(now.tv_usec / 1000);
    }
    snprintf(buffer, size, "%s:%03ld ", date, milliseconds);
}

void upnp_time_to_local_iso(uint32_t seconds, char* buffer, size_t size) {
    const time_t when = static_cast<time_t>(seconds);
    tm local;
    if (!localtime_r(&when, &local)) return;
    snprintf(buffer, size, "%04d-%02d-%02dT%02d:%02d:%02d", local.tm_year + 1900, local.tm_mon + 1,
             local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
}
