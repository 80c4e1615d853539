#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Result.h"

namespace snipwren {
enum class CalcExpressionError { emptyInput, invalidExpression, divisionByZero, nonFiniteResult };
/// The sentence shown to the user as it stands.
std::string_view message(CalcExpressionError error);

/// Evaluates typed arithmetic such as "(3+4)*5", "2^3" or "15% of 847". All numbers are doubles.
class CalcExpressionEvaluator {
public:
    CalcExpressionEvaluator() = delete;

    static Result<double, CalcExpressionError> evaluate(std::string_view text);
    /// Whole numbers below 10^12 in full, all others with six significant digits.
    static std::string formatResult(double value);
    /// The result while it is typed; none while the text is not a calculation yet.
    static std::optional<std::string> previewEvaluate(std::string_view text);
};
} // namespace snipwren
