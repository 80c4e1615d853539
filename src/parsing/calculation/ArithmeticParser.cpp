#include "parsing/calculation/ArithmeticParser.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "parsing/TextScan.h"

namespace snipwren {
std::optional<double> ArithmeticParser::parse() {
    const auto value = sum();
    skipBlanks();
    if (!rest_.empty()) return std::nullopt;
    return value;
}

std::optional<double> ArithmeticParser::sum() {
    auto left = product();
    while (left) {
        skipBlanks();
        const bool plus = take("+");
        if (!plus && !take("-")) return left;
        const auto right = product();
        if (!right) return std::nullopt;
        *left += plus ? *right : -*right;
    }
    return left;
}

std::optional<double> ArithmeticParser::product() {
    auto left = signedPower();
    while (left) {
        skipBlanks();
        const bool times = rest_.substr(0, 2) != "**" && take("*");
        if (!times && !take("/")) return left;
        const auto right = signedPower();
        if (!right) return std::nullopt;
        if (times) {
            *left *= *right;
        } else {
            *left /= *right;
        }
    }
    return left;
}

std::optional<double> ArithmeticParser::signedPower() {
    bool negative = false;
    for (skipBlanks(); take("-"); skipBlanks()) negative = !negative;
    auto value = primary();
    skipBlanks();
    if (value && take("**")) {
        if (++depth_ > maxDepth) return std::nullopt;
        const auto exponent = signedPower();
        --depth_;
        if (!exponent) return std::nullopt;
        value = std::pow(*value, *exponent);
    }
    if (value && negative) value = -*value;
    return value;
}

std::optional<double> ArithmeticParser::primary() {
    skipBlanks();
    if (!take("(")) return number();
    if (++depth_ > maxDepth) return std::nullopt;
    const auto value = sum();
    --depth_;
    skipBlanks();
    if (!take(")")) return std::nullopt;
    return value;
}

/// "7", "7.5", ".5" and "7.".
std::optional<double> ArithmeticParser::number() {
    std::size_t end = 0;
    std::size_t digits = 0;
    bool point = false;
    for (; end < rest_.size(); ++end) {
        if (scan::isAsciiDigit(rest_[end])) {
            ++digits;
        } else if (rest_[end] == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (digits == 0) return std::nullopt;
    double value = 0;
    const auto [stop, code] = std::from_chars(rest_.data(), rest_.data() + end, value, std::chars_format::fixed);
    if (code == std::errc::result_out_of_range) {
        const std::string_view whole = rest_.substr(0, rest_.find('.'));
        const bool large = whole.find_first_of("123456789") < end;
        value = large ? std::numeric_limits<double>::infinity() : 0.0;
    }
    rest_.remove_prefix(end);
    return value;
}

void ArithmeticParser::skipBlanks() {
    while (!rest_.empty() && rest_.front() == ' ') rest_.remove_prefix(1);
}

bool ArithmeticParser::take(std::string_view what) {
    if (rest_.substr(0, what.size()) != what) return false;
    rest_.remove_prefix(what.size());
    return true;
}
} // namespace snipwren
