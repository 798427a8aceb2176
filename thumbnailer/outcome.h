// SPDX-License-Identifier: BSD-2-Clause
// How an attempt to make a picture ends.
#pragma once

#include <string>

enum class Verdict : unsigned char {
    kDone,
    kNoPicture,  // nobody makes one of this file, or this run did not get to it
    kNotForUs,   // another codec, container or profile: a general program may do
};

struct Outcome {
    Verdict verdict = Verdict::kDone;
    std::string sentence;  // why there is no picture; printable, for people
};
