#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Calendar.h"

namespace snipwren {
/// What Return would do with the text typed so far, so that a misreading is seen before it is sent.
struct CapturePreview {
    /// "Fri 27 Nov, 14:00 · standup", "25m · tea", "127.05", "no date".
    std::string text;
    /// Advice beside it; empty for none.
    std::string hint;

    friend bool operator==(const CapturePreview&, const CapturePreview&) = default;

    /// For the command words timer, alarm, reminders, calendar and calc; none for other words, for text that is empty and
    /// for a calculation that is not complete.
    static std::optional<CapturePreview> of(std::string_view commandName, std::string_view text,
                                            TimePoint referenceDate, const Calendar& calendar);
};
} // namespace snipwren
