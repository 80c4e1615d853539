#include "capture/HostTriggerStrip.h"

#include <algorithm>
#include <array>

namespace snipwren {
namespace {
/// Zero-width non-joiner and joiner, the two direction marks, and the mark with which browsers pad what they report.
constexpr std::array<char32_t, 5> formatControlScalars{0x200C, 0x200D, 0x200E, 0x200F, 0xFEFF};
/// Lines that begin like these are list items, which their editors renumber and indent by themselves.
constexpr std::array<std::string_view, 2> listBullets{"\n- ", "\n* "};
constexpr std::array<std::string_view, 9> structuredEditors{
    "md.obsidian", "logseq", "notion", "craft.craft", "typora", "bear", "ulysses", "iawriter", "ia.writer"};
} // namespace

std::optional<HostTriggerStrip::Match> HostTriggerStrip::matchedTrigger(std::string_view value,
                                                                        std::string_view triggerBody,
                                                                        std::optional<std::size_t> caretUTF16) {
    if (triggerBody.empty()) return std::nullopt;
    const std::u16string text = toUtf16(value);
    const std::u16string body = toUtf16(triggerBody);
    const std::array<std::u16string, 3> candidates{body, body + u" ", body + u"\n"};
    const auto endingAt = [&](std::size_t end) -> std::optional<Match> {
        for (const std::u16string& candidate : candidates) {
            if (candidate.size() > end) continue;
            const std::size_t start = end - candidate.size();
            if (text.compare(start, candidate.size(), candidate) == 0)
                return Match{{start, candidate.size()}, toUtf8(candidate)};
        }
        return std::nullopt;
    };
    const std::size_t caret = std::min(caretUTF16.value_or(text.size()), text.size());
    if (auto match = endingAt(caret)) return match;
    return caret == text.size() ? std::nullopt : endingAt(text.size());
}

std::optional<std::string> HostTriggerStrip::strippedValue(std::string_view value, std::string_view triggerBody,
                                                           std::optional<std::size_t> caretUTF16) {
    const auto match = matchedTrigger(value, triggerBody, caretUTF16);
    if (!match) return std::nullopt;
    std::u16string text = toUtf16(value);
    text.erase(match->range.start, match->range.length);
    return toUtf8(text);
}

HostTriggerStrip::Plan HostTriggerStrip::plan(std::string_view axValue, std::string_view triggerBody,
                                              std::optional<std::size_t> caretUTF16, std::string_view bundleId) {
    const auto match = matchedTrigger(axValue, triggerBody, caretUTF16);
    if (!match) return {};
    return {{match->range}, isSafeForWholeValueRewrite(axValue, bundleId)};
}

bool HostTriggerStrip::isStructuredEditor(std::string_view bundleId) {
    const std::string lowered = lowercased(bundleId);
    return std::any_of(structuredEditors.begin(), structuredEditors.end(),
                       [&](std::string_view name) { return lowered.find(name) != std::string::npos; });
}

bool HostTriggerStrip::containsFormatControls(std::string_view value) {
    for (std::size_t i = 0; i < value.size();) {
        const char32_t scalar = nextScalar(value, i);
        if (std::find(formatControlScalars.begin(), formatControlScalars.end(), scalar) != formatControlScalars.end())
            return true;
    }
    return false;
}

bool HostTriggerStrip::isSafeForWholeValueRewrite(std::string_view value, std::string_view bundleId) {
    if (isStructuredEditor(bundleId) || containsFormatControls(value)) return false;
    if (codePointCount(value) > maxRewriteLength) return false;
    if (std::count_if(value.begin(), value.end(), [](char c) { return c == '\n' || c == '\r'; }) > 1) return false;
    return std::none_of(listBullets.begin(), listBullets.end(),
                        [&](std::string_view bullet) { return value.find(bullet) != std::string_view::npos; });
}
} // namespace snipwren
