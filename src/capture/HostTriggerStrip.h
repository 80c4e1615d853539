#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Text.h"

namespace snipwren {
/// Decides how a typed trigger is taken out of a field again. Pure functions; all offsets are UTF-16 code units.
class HostTriggerStrip {
public:
    /// Whole values longer than this are never rewritten.
    static constexpr std::size_t maxRewriteLength = 400;

    /// Delete the range, or, when there is none, nothing.
    struct Action {
        std::optional<Utf16Range> deleteRange;
        friend bool operator==(const Action&, const Action&) = default;
    };
    struct Plan {
        Action primary;
        /// Whether the field's whole value may be rewritten when the primary action fails.
        bool allowWholeValueFallback = false;
        friend bool operator==(const Plan&, const Plan&) = default;
    };
    struct Match {
        Utf16Range range;
        std::string text;
    };

    HostTriggerStrip() = delete;
    static Plan plan(std::string_view axValue, std::string_view triggerBody, std::optional<std::size_t> caretUTF16,
                     std::string_view bundleId);
    /// The trigger, alone or with the space or newline that ended it, at the caret; else at the end of the value.
    static std::optional<Match> matchedTrigger(std::string_view value, std::string_view triggerBody,
                                               std::optional<std::size_t> caretUTF16);
    static std::optional<std::string> strippedValue(std::string_view value, std::string_view triggerBody,
                                                    std::optional<std::size_t> caretUTF16);
    /// Editors whose value is not their document.
    static bool isStructuredEditor(std::string_view bundleId);
    static bool isSafeForWholeValueRewrite(std::string_view value, std::string_view bundleId);
    static bool containsFormatControls(std::string_view value);
};
} // namespace snipwren
