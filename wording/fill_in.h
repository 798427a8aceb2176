// SPDX-License-Identifier: BSD-2-Clause
// Sentences with places for values.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

// The text with each {} replaced by the next value. Places without a value stay, values without a
// place are left out.
std::string fill_in(std::string_view text, std::initializer_list<std::string> values);
