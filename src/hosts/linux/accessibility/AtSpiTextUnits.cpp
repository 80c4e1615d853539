#include "hosts/linux/accessibility/AtSpiTextUnits.h"

#include <algorithm>

namespace snipwren {
AtSpiTextUnits::AtSpiTextUnits(std::string text, bool countsUtf16)
    : text_(std::move(text)),
      countsUtf16_(countsUtf16),
      utf16Length_(snipwren::utf16Length(text_)) {}

std::optional<AtSpiTextUnits> AtSpiTextUnits::of(const std::string& text, int characterCount) {
    if (characterCount < 0) return std::nullopt;
    const auto count = static_cast<std::size_t>(characterCount);
    if (count == codePointCount(text)) return AtSpiTextUnits(text, false);
    if (count == snipwren::utf16Length(text)) return AtSpiTextUnits(text, true);
    return std::nullopt;
}

std::size_t AtSpiTextUnits::toUtf16(int offset) const {
    const auto wanted = static_cast<std::size_t>(std::max(offset, 0));
    if (countsUtf16_) return std::min(wanted, utf16Length_);
    std::size_t at = 0;
    for (std::size_t i = 0; i < wanted && at < text_.size(); ++i) nextScalar(text_, at);
    return utf16Offset(text_, at);
}

int AtSpiTextUnits::fromUtf16(std::size_t offset) const {
    const std::size_t at = utf8Offset(text_, std::min(offset, utf16Length_));
    const std::string before = text_.substr(0, at);
    return static_cast<int>(countsUtf16_ ? snipwren::utf16Length(before) : codePointCount(before));
}
} // namespace snipwren
