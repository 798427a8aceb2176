// SPDX-License-Identifier: BSD-2-Clause
// Text from strangers, as it may be shown: what a file holds or is called can be any bytes.
#pragma once

#include <string>
#include <string_view>

// The text with all that is no valid UTF-8, or would not be seen, as \xNN for each of its bytes:
// control characters, marks that turn the writing direction, unassigned and private characters. A
// backslash is doubled. The result is valid UTF-8.
std::string printable(std::string_view text);
