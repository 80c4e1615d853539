#pragma once

#include <string>
#include <string_view>

#include "base/Calendar.h"

namespace snipwren {
/// The pieces that targets build their previews from, so that a misreading is seen before it is sent. Stateless.
class PreviewText {
public:
    static constexpr std::string_view noDate = "no date";

    PreviewText() = delete;
    /// "Fri 27 Nov, 14:00"; with the year when it is not the reference's.
    static std::string day(TimePoint date, bool withTime, TimePoint reference, const Calendar& calendar);
    /// "Fri 27 Nov · standup"; the first alone without a title.
    static std::string joined(std::string first, const std::string& title);
    /// "no time — Name a clock time"; the text alone without advice.
    static std::string withAdvice(std::string text, std::string_view advice);
    /// "in 20 minutes" names a moment, but not as a clock time, which is all that alarms and events go by.
    static bool namesCountdown(std::string_view text, TimePoint reference, const Calendar& calendar);
};
} // namespace snipwren
