#include "parsing/DurationParser.h"

#include <gtest/gtest.h>

#include "base/Regex.h"
#include "base/Text.h"
#include "parsing/RandomText.h"

namespace snipwren {
namespace {
TEST(DurationParser, SumsTheTermsAndKeepsTheOtherWords) {
    struct Case {
        const char* text;
        double interval;
        const char* label; // Empty for none.
        const char* shown;
    };
    const Case cases[] = {
        {"25m tea", 1500, "tea", "25m"},
        {"1h 30m deep work", 5400, "deep work", "1h 30m"},
        {"1h focus 30m", 5400, "focus", "1h 30m"},
        {"  90s  ", 90, "", "1m 30s"},
        {"1.5h", 5400, "", "1h 30m"},
        {"24h", 86400, "", "24h"},
        {"60 SECONDS", 60, "", "1m"},
        {"1H2M5S", 3725, "", "1h 2m"},
        {"tea 5 mangoes 2 Mins", 120, "tea 5 mangoes", "2m"},
        {"call 3 hrs bob", 10800, "call bob", "3h"},
        {"1.2.3m", 138, "1.", "2m 18s"},
        {"2min\u3000boil\u00A0eggs", 120, "boil eggs", "2m"},
    };
    for (const auto& [text, interval, label, shown] : cases) {
        const auto got = DurationParser::parse(text);
        ASSERT_TRUE(got) << text << ": " << message(got.error());
        EXPECT_DOUBLE_EQ(got->interval, interval) << text;
        EXPECT_EQ(got->label.value_or(""), label) << text;
        EXPECT_EQ(got->label.has_value(), *label != '\0') << text;
        EXPECT_EQ(got->displayDuration, shown) << text;
    }
}

TEST(DurationParser, NamesTheFault) {
    using enum DurationParserError;
    const std::pair<std::string, DurationParserError> cases[] = {
        {"", emptyInput},
        {" \n\u00A0", emptyInput},
        {"focus time", invalidFormat},
        {"5 mangoes", invalidFormat},
        {"5hourss", invalidFormat},
        {"5m\u212A", invalidFormat}, // The Kelvin sign is a letter k where case is ignored.
        {"5\u017F", invalidFormat},  // As is the long s, which no unit begins with.
        {"0m", nonPositiveDuration},
        {"0m 5m", nonPositiveDuration},
        {"\u0665m", nonPositiveDuration}, // A digit, but not one that reads as a number.
        {"30s", belowMinimum},
        {"59.5s", belowMinimum},
        {"24h 1m", exceedsMaximum},
        {std::string(400, '9') + "h", exceedsMaximum},
        {"0." + std::string(400, '0') + "1h", nonPositiveDuration},
    };
    for (const auto& [text, want] : cases) {
        const auto got = DurationParser::parse(text);
        ASSERT_FALSE(got) << text;
        EXPECT_EQ(got.error(), want) << text << ": " << message(got.error());
    }
}

TEST(DurationParser, RoundsBeforeItSplits) {
    const std::pair<double, const char*> cases[] = {{59.4, "59s"},   {59.6, "1m"}, {3599.5, "1h"},
                                                    {3725, "1h 2m"}, {-5, "0s"},   {1e300, "277777777777h 46m"}};
    for (const auto& [seconds, want] : cases) EXPECT_EQ(DurationParser::formatInterval(seconds), want) << seconds;
}

/// The scanner against the expression that defines it, over texts made of what could confuse it.
TEST(DurationParser, FindsTheTermsThatTheExpressionFinds) {
    const auto expression =
        Regex::compile(R"((?i)(\d+(?:\.\d+)?)\s*(h(?:ours?|rs?)?|m(?:in(?:ute)?s?)?|s(?:ec(?:ond)?s?)?)(?![a-z]))");
    ASSERT_TRUE(expression);
    RandomText random(11, {"1", "25",     "0",      ".",      "5.5", " ", "\t",  "\u200B", "\u00A0", "h",
                           "H", "our",    "r",      "s",      "S",   "m", "in",  "ute",    "sec",    "ond",
                           "x", "\u017F", "\u212A", "\u0663", "é",   "-", "60m", "1h"});
    for (int i = 0; i < 20000; ++i) {
        const std::string text(trimmed(random.next(10)));
        const auto matches = expression->allMatches(text);
        ASSERT_TRUE(matches) << text;
        const auto got = DurationParser::parse(text);
        if (text.empty() || matches->empty()) {
            ASSERT_FALSE(got) << text;
            ASSERT_EQ(got.error(), text.empty() ? DurationParserError::emptyInput : DurationParserError::invalidFormat)
                << text;
            continue;
        }
        if (!got) {
            ASSERT_NE(got.error(), DurationParserError::emptyInput) << text;
            continue;
        }
        std::string label = text;
        for (auto match = matches->rbegin(); match != matches->rend(); ++match)
            label.erase(match->start(), match->length());
        ASSERT_EQ(got->label.value_or(""), trimmed(collapsedWhitespace(label))) << text;
    }
}
} // namespace
} // namespace snipwren
