#pragma once

#include <optional>
#include <string>

namespace snipwren {
/// What a target tells the user after a capture has arrived.
struct Landing {
    /// The target's command word.
    std::string target;
    /// The trimmed capture.
    std::string text;
    /// A short sentence for the user.
    std::string receipt;
    /// A file, or an application, that the user can go to.
    std::optional<std::string> revealPath;
    /// Name of a symbol.
    std::optional<std::string> systemImage;
    /// The capture counts among the day's open items.
    bool parksLoop = false;
    /// The capture's identifier in the journal.
    std::string captureId = {};
    /// It can be taken back.
    bool canUndo = false;
    friend bool operator==(const Landing&, const Landing&) = default;
};

/// Shows the receipt of a capture. Thread safe: called on the lane that delivered.
class CaptureLanding {
public:
    virtual ~CaptureLanding() = default;
    virtual void announce(const Landing& landing) = 0;
};
} // namespace snipwren
