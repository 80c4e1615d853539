#include "parsing/calculation/CalcExpressionEvaluator.h"

#include <cmath>

#include <gtest/gtest.h>

#include "base/Regex.h"
#include "parsing/RandomText.h"

namespace snipwren {
namespace {
TEST(CalcExpressionEvaluator, ComputesInDoublesWithTheUsualPrecedence) {
    const std::pair<const char*, const char*> cases[] = {
        {"2+2", "4"},
        {"(3+4)*5", "35"},
        {"7/2", "3.5"},
        {"10/4", "2.5"},
        {"1/3", "0.333333"},
        {"-5+2", "-3"},
        {"2^3", "8"},
        {"2**3", "8"},
        {"2^3^2", "512"},
        {"-2^2", "-4"},
        {"2^-1", "0.5"},
        {"2*-3", "-6"},
        {"2--3", "5"},
        {" 1 + 2 * 3 ", "7"},
        {"8-3-2", "3"},
        {"16/4/2", "2"},
        {".5+5.", "5.5"},
        {"15% of 847", "127.05"},
        {"15%OF847+3", "130.05"},
        {"0.001% of 5", "5e-05"},
        {"10% of 50 + 20% of 10", "7"},
        {"999999999999", "999999999999"},
        {"1000000000000", "1e+12"},
        {"-(2+3)", "-5"},
        {"200% of 99999999999999999999", "2e+20"},
    };
    for (const auto& [text, want] : cases) {
        const auto got = CalcExpressionEvaluator::evaluate(text);
        ASSERT_TRUE(got) << text << ": " << message(got.error());
        EXPECT_EQ(CalcExpressionEvaluator::formatResult(*got), want) << text;
    }
}

TEST(CalcExpressionEvaluator, NamesTheFault) {
    using enum CalcExpressionError;
    const std::string nested(10000, '(');
    const std::pair<std::string, CalcExpressionError> cases[] = {
        {"", emptyInput},
        {" \t\n", emptyInput},
        {"(3+4", invalidExpression},
        {"3+4)", invalidExpression},
        {")3(", invalidExpression},
        {"()", invalidExpression},
        {"2x3", invalidExpression},
        {"1,000", invalidExpression},
        {"2+", invalidExpression},
        {"2***", invalidExpression},
        {"+2", invalidExpression},
        {"2 3", invalidExpression},
        {"1.2.3", invalidExpression},
        {".", invalidExpression},
        {"5%", invalidExpression},
        {"7%2", invalidExpression},
        {"10% of 20% of 50", invalidExpression},
        {"2\t+2", invalidExpression},
        {"(-)", invalidExpression},
        {nested + "1" + std::string(10000, ')'), invalidExpression},
        {"1/0", divisionByZero},
        {"0/0", divisionByZero},
        {"10^999", nonFiniteResult},
        {std::string(400, '9'), nonFiniteResult},
    };
    for (const auto& [text, want] : cases) {
        const auto got = CalcExpressionEvaluator::evaluate(text);
        ASSERT_FALSE(got) << text << " = " << *got;
        EXPECT_EQ(got.error(), want) << text << ": " << message(got.error());
    }
    const auto unaryChain = CalcExpressionEvaluator::evaluate(std::string(100000, '-') + "1");
    EXPECT_EQ(unaryChain.value_or(0), 1); // A long chain is a loop, not a recursion.
}

TEST(CalcExpressionEvaluator, PreviewsOnlyWhatIsComplete) {
    const std::pair<const char*, const char*> cases[] = {{"2+2", "4"}, {"2+", ""},  {"2^", ""},   {"2**", ""},
                                                         {"(2", ""},   {"tea", ""}, {"  ", ""},   {"7", "7"},
                                                         {"1/0", ""},  {"-", ""},   {"2***", ""}, {"5% of", ""}};
    for (const auto& [text, want] : cases)
        EXPECT_EQ(CalcExpressionEvaluator::previewEvaluate(text).value_or(""), want) << text;
}

/// What the preview shows is what the evaluation gives, and nothing that is typed makes either fall over.
TEST(CalcExpressionEvaluator, PreviewAgreesWithTheResult) {
    RandomText random(7, {"1", "2.5", "0", "+", "-", "*", "/", "^", "(", ")", " ", "%", " of ", ".", "**", "3"});
    for (int i = 0; i < 20000; ++i) {
        const std::string text = random.next(12);
        const auto value = CalcExpressionEvaluator::evaluate(text);
        const auto preview = CalcExpressionEvaluator::previewEvaluate(text);
        if (preview) {
            ASSERT_TRUE(value) << text;
            ASSERT_EQ(*preview, CalcExpressionEvaluator::formatResult(*value)) << text;
        }
    }
}

// The hand-written scanner against the expression that it stands for.
TEST(CalcExpressionEvaluator, FindsThePercentOfPhrasesOfTheExpression) {
    const auto expression = Regex::compile(R"((?i)(\d+(?:\.\d+)?)\s*%\s*of\s*(\d+(?:\.\d+)?))");
    ASSERT_TRUE(expression);
    RandomText random(13, {"15", "2.5", "4.", ".5", "%", "% of ", "%of", "%\tOF\u00A0", " ", "of", "oF 8", "+", "(",
                           ")", "20% of 50", "\u0664"});
    int found = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string text = random.next(9);
        const auto matches = expression->allMatches(text);
        ASSERT_TRUE(matches);
        std::string replaced = text;
        for (auto match = matches->rbegin(); match != matches->rend(); ++match)
            replaced.replace(match->start(), match->length(),
                             "(" + std::string(match->text(text, 2)) + "*" + std::string(match->text(text, 1))
                                 + "/100)");
        const auto got = CalcExpressionEvaluator::evaluate(text);
        const auto want = CalcExpressionEvaluator::evaluate(replaced);
        ASSERT_EQ(got.has_value(), want.has_value()) << text << " as " << replaced;
        if (!got) continue;
        found += matches->empty() ? 0 : 1;
        EXPECT_NEAR(*got, *want, 1e-9 * std::abs(*want)) << text;
    }
    EXPECT_GT(found, 100) << "the texts hardly met the expression";
}
} // namespace
} // namespace snipwren
