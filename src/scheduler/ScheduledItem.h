#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Clock.h"

namespace snipwren {
/// One notification as the scheduler and its clients exchange it.
struct ScheduledItem {
    /// `interval` counts elapsed time, sleep included; `moment` follows the wall clock.
    enum class Kind : std::uint8_t { atOnce, interval, moment };

    std::string id;
    std::string category;
    std::string title;
    std::string subtitle;
    std::string body;
    bool hasSound = false;
    Kind kind = Kind::atOnce;
    /// For `interval`: from the moment of adding.
    Duration interval{};
    /// When it fires by the present wall clock.
    TimePoint fireAt{};
    std::map<std::string, double> userInfo;
    /// Identifier and title of each button.
    std::vector<std::pair<std::string, std::string>> actions;
    friend bool operator==(const ScheduledItem&, const ScheduledItem&) = default;
};

/// The one text in which items travel over the session bus: thousands of them as D-Bus structures, or as an array of
/// bytes, would take longer to pack than everything else together. UTF-8 without NUL, as the bus asks of a string.
class ScheduledItemCodec {
public:
    ScheduledItemCodec() = delete;
    static std::string encode(const ScheduledItem& item);
    static std::string encode(const std::vector<ScheduledItem>& items);
    /// None for bytes that are no whole item: cut short, too long, or with text that is not UTF-8.
    static std::optional<ScheduledItem> decode(std::string_view bytes);
    static std::optional<std::vector<ScheduledItem>> decodeList(std::string_view bytes);
    /// One after the other, for lists that are only passed on. False for bytes that are no whole list; some of it may
    /// have been handed over by then.
    static bool decodeEach(std::string_view bytes, const std::function<void(ScheduledItem&&)>& take);
};
} // namespace snipwren
