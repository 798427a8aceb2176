// SPDX-License-Identifier: BSD-2-Clause
// From a file name extension to a media type.
#pragma once

// A further table for extensions that the built-in one does not know, in the same form: groups of
// a media type and its extensions, each closed by an empty string, the table by an empty type. The
// last group answers for everything else. Null while none is installed.
extern const char* const* g_additionalMediaTypes;

// The media type of the extension, without regard to case; "application/octet-stream" for an
// unknown one, null for null.
const char* media_type_of(const char* extension);
