#include "parsing/DurationParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "base/Text.h"
#include "parsing/TextScan.h"

namespace snipwren {
namespace {
struct Term {
    std::size_t start = 0;
    std::size_t end = 0;
    std::string_view number;
    std::size_t unitStart = 0;
};

constexpr std::string_view longS = "\u017F";  // Folds to "s" where case is ignored.
constexpr std::string_view kelvin = "\u212A"; // Folds to "k".

/// Moves past `letter` in either case; the long s counts as an s, as it does for the expression this stands for.
bool takeLetter(std::string_view text, std::size_t& at, char letter) {
    if (at < text.size() && scan::asciiLower(text[at]) == letter) {
        ++at;
        return true;
    }
    if (letter == 's' && text.substr(at, longS.size()) == longS) {
        at += longS.size();
        return true;
    }
    return false;
}

bool takeWord(std::string_view text, std::size_t& at, std::string_view word) {
    std::size_t next = at;
    for (const char letter : word)
        if (!takeLetter(text, next, letter)) return false;
    at = next;
    return true;
}

/// `h(?:ours?|rs?)?|m(?:in(?:ute)?s?)?|s(?:ec(?:ond)?s?)?` followed by no further letter. The longest reading is the only
/// one that can hold: after every shorter one stands a letter.
bool takeUnit(std::string_view text, std::size_t& at) {
    std::size_t end = at;
    if (takeLetter(text, end, 'h')) {
        if (takeWord(text, end, "our") || takeLetter(text, end, 'r')) takeLetter(text, end, 's');
    } else if (takeLetter(text, end, 'm')) {
        if (takeWord(text, end, "in")) {
            takeWord(text, end, "ute");
            takeLetter(text, end, 's');
        }
    } else if (takeLetter(text, end, 's')) {
        if (takeWord(text, end, "ec")) {
            takeWord(text, end, "ond");
            takeLetter(text, end, 's');
        }
    } else {
        return false;
    }
    const std::string_view rest = text.substr(end);
    if (!rest.empty() && scan::isAsciiLetter(rest.front())) return false;
    if (rest.substr(0, longS.size()) == longS || rest.substr(0, kelvin.size()) == kelvin) return false;
    at = end;
    return true;
}

/// The first `(\d+(?:\.\d+)?)\s*(unit)(?![a-z])` from `from` on.
std::optional<Term> nextTerm(std::string_view text, std::size_t from) {
    while (from < text.size()) {
        const std::size_t whole = scan::skipDigits(text, from);
        if (whole == from) {
            nextScalar(text, from);
            continue;
        }
        const std::size_t number = scan::skipDecimal(text, from);
        Term term{from, scan::skipSpaces(text, number), text.substr(from, number - from), 0};
        term.unitStart = term.end;
        if (takeUnit(text, term.end)) return term;
        from = whole; // A start later in the same run of digits meets the same end.
    }
    return std::nullopt;
}

/// None unless the whole text is a number of ASCII digits; too large a number is infinite.
std::optional<double> decimal(std::string_view text) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, code] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (rest != end) return std::nullopt;
    if (code == std::errc::result_out_of_range) {
        const std::string_view whole = text.substr(0, text.find('.'));
        const bool large = whole.find_first_not_of('0') != std::string_view::npos;
        return large ? std::numeric_limits<double>::infinity() : 0.0;
    }
    if (code != std::errc()) return std::nullopt;
    return value;
}
} // namespace

std::string_view message(DurationParserError error) {
    switch (error) {
    case DurationParserError::emptyInput: return "Timer text is empty. Try: 25m, 1h 30m, or 90s";
    case DurationParserError::invalidFormat: return "Could not parse timer duration. Try: 25m, 1h 30m, or 90s";
    case DurationParserError::nonPositiveDuration: return "Timer duration must be greater than zero.";
    case DurationParserError::belowMinimum:
        return "Timer must be at least 1 minute (e.g. 1m, 90s, or 25m). macOS needs this to deliver notifications "
               "reliably.";
    case DurationParserError::exceedsMaximum: return "Timer duration cannot exceed 24 hours.";
    }
    return {};
}

Result<DurationParseResult, DurationParserError> DurationParser::parse(std::string_view text) {
    const std::string_view body = trimmed(text);
    if (body.empty()) return unexpected(DurationParserError::emptyInput);
    double total = 0;
    std::string label;
    std::size_t kept = 0; // The label is what lies between the terms.
    bool found = false;
    for (auto term = nextTerm(body, 0); term; term = nextTerm(body, term->end)) {
        found = true;
        const auto number = decimal(term->number);
        if (!number || *number <= 0) return unexpected(DurationParserError::nonPositiveDuration);
        switch (scan::asciiLower(body[term->unitStart])) {
        case 'h': total += *number * 3600; break;
        case 'm': total += *number * 60; break;
        case 's': total += *number; break;
        default: return unexpected(DurationParserError::invalidFormat); // A long s is no unit of its own.
        }
        label.append(body.substr(kept, term->start - kept));
        kept = term->end;
    }
    if (!found) return unexpected(DurationParserError::invalidFormat);
    if (total <= 0) return unexpected(DurationParserError::nonPositiveDuration);
    if (total < minInterval) return unexpected(DurationParserError::belowMinimum);
    if (total > maxInterval) return unexpected(DurationParserError::exceedsMaximum);
    label.append(body.substr(kept));
    label = collapsedWhitespace(label);
    DurationParseResult result{total, std::nullopt, formatInterval(total)};
    if (const std::string_view words = trimmed(label); !words.empty()) result.label = std::string(words);
    return result;
}

std::string DurationParser::formatInterval(double seconds) {
    // The bound keeps the conversion defined for any double; NaN compares false and becomes 0.
    const double rounded = std::round(seconds);
    const long long total = rounded > 0 ? static_cast<long long>(std::min(rounded, 1e15)) : 0;
    if (total < 60) return std::to_string(total) + "s";
    const long long hours = total / 3600;
    const long long minutes = total % 3600 / 60;
    const long long rest = total % 60;
    if (hours > 0) return std::to_string(hours) + "h" + (minutes ? " " + std::to_string(minutes) + "m" : "");
    return std::to_string(minutes) + "m" + (rest ? " " + std::to_string(rest) + "s" : "");
}
} // namespace snipwren
