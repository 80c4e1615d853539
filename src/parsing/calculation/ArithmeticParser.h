#pragma once

#include <optional>
#include <string_view>

namespace snipwren {
/// Recursive descent over + - * / unary minus ** and parentheses, with blanks between the parts. "**" binds tighter than
/// the unary minus before it and groups to the right: -2**2 is -4, 2**3**2 is 512.
class ArithmeticParser {
public:
    /// Deeper nesting is refused instead of exhausting the stack.
    static constexpr int maxDepth = 200;

    explicit ArithmeticParser(std::string_view text) : rest_(text) {}
    /// None when the whole text is not one expression. The value may be infinite or not a number.
    std::optional<double> parse();

private:
    std::optional<double> sum();
    std::optional<double> product();
    std::optional<double> signedPower();
    std::optional<double> primary();
    std::optional<double> number();
    void skipBlanks();
    bool take(std::string_view what);

    std::string_view rest_;
    int depth_ = 0;
};
} // namespace snipwren
