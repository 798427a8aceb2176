// SPDX-License-Identifier: BSD-2-Clause
// What those functions return whose numbers host programs know; all others return 0 or 1.
#pragma once

enum UpnpStatus : int {
    kUpnpOk = 0,
    kUpnpNotThere = 2,  // an empty handle, or a path that leads nowhere
    kUpnpNoMemory = 8,
    kUpnpFailed = 14,  // the system refused, or the file ended before
};
