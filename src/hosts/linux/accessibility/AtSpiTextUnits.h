#pragma once

#include <optional>
#include <string>

#include "base/Text.h"

namespace snipwren {
/// In which unit a program counts the offsets of a text, found by comparing its own count with the text, and the way
/// between that unit and UTF-16. GTK and browsers count code points, Qt counts UTF-16 units.
class AtSpiTextUnits {
public:
    /// None when the count is neither, so that no offset can be trusted.
    static std::optional<AtSpiTextUnits> of(const std::string& text, int characterCount);

    bool countsUtf16() const { return countsUtf16_; }
    std::size_t length() const { return utf16Length_; }
    /// Clamped to the text.
    std::size_t toUtf16(int offset) const;
    /// The program's offset; inside a surrogate pair it is the pair's start.
    int fromUtf16(std::size_t offset) const;

private:
    AtSpiTextUnits(std::string text, bool countsUtf16);

    std::string text_;
    bool countsUtf16_;
    std::size_t utf16Length_;
};
} // namespace snipwren
