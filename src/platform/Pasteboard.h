#pragma once

#include <optional>
#include <string>

namespace snipwren {
/// The general clipboard. Main queue.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;
    virtual void clear() = 0;
    /// Declares plain text as the only type and sets it; false when the system did not take it.
    virtual bool setString(const std::string& text) = 0;
    /// Asks the program that holds the clipboard and may wait for it.
    virtual std::optional<std::string> string() const = 0;
    /// What we set, as long as it is certainly still there. Asks nobody.
    virtual std::optional<std::string> ownString() const { return std::nullopt; }
};
} // namespace snipwren
