#include "base/Text.h"

#include <gtest/gtest.h>

#include "base/Random.h"
#include "base/Regex.h"

namespace snipwren {
namespace {
TEST(Text, TrimsUnicodeWhiteSpaceAndNothingElse) {
    const std::pair<std::string, const char*> cases[] = {{"  a b \n", "a b"},
                                                         {"\xC2\xA0x\xE2\x80\xA8", "x"},
                                                         {" \t\r\n", ""},
                                                         {"", ""},
                                                         {"\xE3\x80\x80\xE6\x9D\xB1\xE3\x80\x80", "\xE6\x9D\xB1"},
                                                         {" \xFF ", "\xFF"},
                                                         {"\x80\x80", "\x80\x80"}};
    for (const auto& [text, want] : cases) EXPECT_EQ(trimmed(text), want) << text;
}

TEST(Text, ConvertsOffsetsBothWaysInAnyText) {
    for (const std::string text : {"", "abc", "\xC3\xA9t\xC3\xA9",
                                   "a\xF0\x9F\x98\x80"
                                   "b",
                                   "bad\xC3 \xF0\x9F end\xE2"}) {
        EXPECT_EQ(toUtf16(text).size(), utf16Length(text));
        for (std::size_t unit = 0; unit <= utf16Length(text); ++unit) {
            const std::size_t byte = utf8Offset(text, unit);
            ASSERT_LE(byte, text.size());
            EXPECT_LE(utf16Offset(text, byte), unit) << text;
        }
        EXPECT_TRUE(isValidUtf8(sanitizedUtf8(text)));
        EXPECT_EQ(toUtf8(toUtf16(text)), sanitizedUtf8(text));
    }
    EXPECT_EQ(utf8Offset("a\xF0\x9F\x98\x80"
                         "b",
                         2),
              1U)
        << "inside a pair: its start";
    EXPECT_EQ(toUtf8(u"\xD83D!"), "\xEF\xBF\xBD!") << "half a pair";
    EXPECT_EQ(lowercased("\xC3\x89T\xC3\x89 ABC"), "\xC3\xA9t\xC3\xA9 abc");
}

TEST(Regex, AnswersWithByteOffsetsAndGroups) {
    const auto regex = Regex::compile(R"((\d+)\s*(min)?)").value();
    const std::string text = "\xC3\xA9\xF0\x9F\x98\x80 25 min";
    const auto match = regex.firstMatch(text).value();
    ASSERT_TRUE(match);
    EXPECT_EQ(match->text(text), "25 min");
    EXPECT_EQ(match->text(text, 1), "25");
    EXPECT_EQ(regex.allMatches("1 2 3").value().size(), 3U);
    EXPECT_FALSE(regex.allMatches("7").value().front().groups[2]);
    EXPECT_EQ(Regex::compile("a(b)").value().replacingAll("xabx", "$1").value(), "xbx");
}

TEST(Regex, RefusesABadPatternAndGivesUpOnAnEndlessOne) {
    EXPECT_FALSE(Regex::compile("(unclosed"));
    const auto hostile = Regex::compile("(a+)+$", Regex::Case::sensitive, 5).value();
    EXPECT_EQ(hostile.contains(std::string(64, 'a') + "b").error(), RegexFault::tookTooLong);
    EXPECT_TRUE(hostile.contains("aaa").value()) << "and is usable afterwards";
}

TEST(Random, UuidsHaveVersionFourAndDiffer) {
    SystemRandom random;
    const std::string uuid = random.uuid();
    ASSERT_EQ(uuid.size(), 36U);
    EXPECT_EQ(uuid[14], '4');
    EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos);
    EXPECT_NE(uuid, random.uuid());
}
} // namespace
} // namespace snipwren
