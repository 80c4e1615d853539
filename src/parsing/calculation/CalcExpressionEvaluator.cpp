#include "parsing/calculation/CalcExpressionEvaluator.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "base/Text.h"
#include "parsing/TextScan.h"
#include "parsing/calculation/ArithmeticParser.h"

namespace snipwren {
namespace {
constexpr std::string_view allowedCharacters = "0123456789.+-*/%()^ ";
constexpr std::string_view operatorCharacters = "+-*/%^";

std::string_view trimmedOfBlanks(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

bool hasIncompleteSuffix(std::string_view text) {
    const std::string_view body = trimmedOfBlanks(text);
    if (body.empty()) return true;
    if (body.back() != '*') return operatorCharacters.find(body.back()) != std::string_view::npos;
    return !body.ends_with("***"); // Three and more are left to the evaluation to refuse.
}

struct PercentOf {
    std::size_t start = 0;
    std::size_t end = 0;
    std::string_view percent;
    std::string_view base;
};

/// The first `(?i)(\d+(?:\.\d+)?)\s*%\s*of\s*(\d+(?:\.\d+)?)` from `from` on.
std::optional<PercentOf> nextPercentOf(std::string_view text, std::size_t from) {
    while (from < text.size()) {
        const std::size_t whole = scan::skipDigits(text, from);
        if (whole == from) {
            nextScalar(text, from);
            continue;
        }
        const std::size_t number = scan::skipDecimal(text, from);
        const std::size_t sign = scan::skipSpaces(text, number);
        if (sign < text.size() && text[sign] == '%') {
            const std::size_t of = scan::skipSpaces(text, sign + 1);
            if (asciiLowercased(text.substr(of, 2)) == "of") {
                const std::size_t base = scan::skipSpaces(text, of + 2);
                const std::size_t end = scan::skipDecimal(text, base);
                if (end > base)
                    return PercentOf{from, end, text.substr(from, number - from), text.substr(base, end - base)};
            }
        }
        from = whole; // A start later in the same run of digits meets the same end.
    }
    return std::nullopt;
}

std::optional<double> decimal(std::string_view text) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, code] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    if (rest != end || code != std::errc()) return std::nullopt;
    return value;
}

/// The shortest digits that read back as the same double, never with an exponent, whose letter would be refused.
std::string written(double value) {
    char buffer[400]; // The longest is near 1e-308.
    const auto [end, code] = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed);
    std::string out(buffer, code == std::errc() ? end : buffer);
    if (out.find('.') == std::string::npos) out += ".0";
    return out;
}

std::string withPercentOf(std::string_view text) {
    std::string out;
    std::size_t kept = 0;
    for (auto match = nextPercentOf(text, 0); match; match = nextPercentOf(text, match->end)) {
        const auto percent = decimal(match->percent);
        const auto base = decimal(match->base);
        if (!percent || !base) continue;
        out.append(text.substr(kept, match->start - kept));
        out.append("(").append(written(*base)).append("*").append(written(*percent / 100)).append(")");
        kept = match->end;
    }
    return out.append(text.substr(kept));
}

bool isWellStructured(std::string_view text) {
    const std::string_view body = trimmedOfBlanks(text);
    if (hasIncompleteSuffix(body)) return false;
    if (std::string_view("+*/%^").find(body.front()) != std::string_view::npos) return false;
    long depth = 0;
    for (const char c : body) {
        if (c == '(') ++depth;
        if (c == ')' && --depth < 0) return false;
    }
    return depth == 0 && body.find("()") == std::string_view::npos;
}
} // namespace

std::string_view message(CalcExpressionError error) {
    switch (error) {
    case CalcExpressionError::emptyInput: return "Calculation text is empty. Try: 2+2 or 15% of 847";
    case CalcExpressionError::invalidExpression:
        return "Could not parse that calculation. Try: 2+2, (3+4)*5, 2^3, or 15% of 847";
    case CalcExpressionError::divisionByZero: return "Division by zero is not allowed.";
    case CalcExpressionError::nonFiniteResult: return "Calculation result is too large or undefined.";
    }
    return {};
}

Result<double, CalcExpressionError> CalcExpressionEvaluator::evaluate(std::string_view text) {
    const std::string_view body = trimmed(text);
    if (body.empty()) return unexpected(CalcExpressionError::emptyInput);
    const std::string expression = replacedAll(withPercentOf(body), "^", "**"); // Both signs mean power.
    if (expression.find_first_not_of(allowedCharacters) != std::string::npos || !isWellStructured(expression))
        return unexpected(CalcExpressionError::invalidExpression);
    const auto value = ArithmeticParser(expression).parse();
    if (!value) return unexpected(CalcExpressionError::invalidExpression);
    if (std::isfinite(*value)) return *value;
    const bool divides = expression.find('/') != std::string::npos;
    return unexpected(divides ? CalcExpressionError::divisionByZero : CalcExpressionError::nonFiniteResult);
}

std::string CalcExpressionEvaluator::formatResult(double value) {
    const bool whole = std::fabs(value) < 1e12 && std::trunc(value) == value;
    char buffer[64];
    const int length = std::snprintf(buffer, sizeof buffer, whole ? "%.0f" : "%.6g", value);
    return {buffer, static_cast<std::size_t>(std::max(length, 0))};
}

std::optional<std::string> CalcExpressionEvaluator::previewEvaluate(std::string_view text) {
    const std::string_view body = trimmed(text);
    if (std::none_of(body.begin(), body.end(), scan::isAsciiDigit) || hasIncompleteSuffix(body)) return std::nullopt;
    const auto value = evaluate(body);
    if (!value) return std::nullopt;
    return formatResult(*value);
}
} // namespace snipwren
