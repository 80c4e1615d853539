#pragma once

#include <chrono>
#include <string>

#include "hosts/linux/x11/X11KeyboardTap.h"

namespace snipwren {
/// Tries the key tap on a field of its own: opens a small window, types a trigger into it and looks at what arrived where.
/// For the doctor; nothing of it outlives the call. Takes the focus for less than a second. Any thread.
class TapSelfTest {
public:
    struct Report {
        bool passed = false;
        /// What was seen, or what went wrong, in a sentence.
        std::string sentence;
    };
    TapSelfTest() = delete;
    static Report run(X11KeyboardTap::Options options);
};
} // namespace snipwren
