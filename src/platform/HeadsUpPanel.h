#pragma once

#include <string>

namespace snipwren {
struct HeadsUp {
    std::string title;
    std::string body;
    /// Name of a symbol ("timer", "arrow.down.circle"); empty for none.
    std::string symbol;
    /// From 0 to 1 for a running operation; below 0 for none.
    double progress = -1;
};

/// Our own small notice on the screen, for which no permission is needed. Main queue.
class HeadsUpPanel {
public:
    virtual ~HeadsUpPanel() = default;
    virtual void show(const HeadsUp& notice) = 0;
};
} // namespace snipwren
