#include "capture/HostTriggerStrip.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
TEST(HostTriggerStrip, FindsTheTriggerAtTheCaretOrAtTheEnd) {
    const struct {
        const char* value;
        const char* body;
        std::optional<std::size_t> caret;
        const char* want; // Without the trigger; "-" when it is not found.
    } cases[] = {
        {"Hello //note", "//note", 12, "Hello "},
        {"Hello //note ", "//note", 13, "Hello "},
        {"Hello //note\n", "//note", 13, "Hello "},
        {"//note tail", "//note", 6, " tail"},
        {"a //note b //note", "//note", 8, "a  b //note"},
        {"text //note", "//note", 2, "text "},
        {"text //note", "//note", std::nullopt, "text "},
        {"text //note", "//note", 999, "text "},
        // The offset counts UTF-16 units: the emoji is two.
        {"\xF0\x9F\x98\x80 //note", "//note", 9, "\xF0\x9F\x98\x80 "},
        {"//NOTE", "//note", 6, "-"},
        {"//note more", "//note", 11, "-"},
        {"", "//note", 0, "-"},
        {"abc", "", 3, "-"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(HostTriggerStrip::strippedValue(row.value, row.body, row.caret).value_or("-"), row.want) << row.value;
}

TEST(HostTriggerStrip, RewritesAWholeValueOnlyWhereItIsSafe) {
    const std::pair<std::string, bool> values[] = {
        {std::string(400, 'x'), true}, {std::string(401, 'x'), false}, {"one\ntwo", true},      {"one\ntwo\n", false},
        {"one\r\ntwo", false},         {"list\n- item", false},        {"list\n* item", false}, {"2 - 1 * 3", true},
        {"join\u200D", false},         {"no\u200Cjoin", false},        {"left\u200E", false},   {"right\u200F", false},
        {"padded\uFEFF", false},
    };
    for (const auto& [value, safe] : values)
        EXPECT_EQ(HostTriggerStrip::isSafeForWholeValueRewrite(value, "com.example.editor"), safe) << value;
    std::string wide;
    for (int i = 0; i < 400; ++i) wide += "\u00e4";
    EXPECT_TRUE(HostTriggerStrip::isSafeForWholeValueRewrite(wide, "com.example.editor")) << "characters, not bytes";
    const std::pair<const char*, bool> hosts[] = {{"md.Obsidian", true},
                                                  {"com.notion.desktop", true},
                                                  {"net.shinyfrog.bear", true},
                                                  {"com.example.editor", false},
                                                  {"", false}};
    for (const auto& [bundleId, structured] : hosts) {
        EXPECT_EQ(HostTriggerStrip::isStructuredEditor(bundleId), structured) << bundleId;
        EXPECT_EQ(HostTriggerStrip::plan("//note", "//note", 6, bundleId).allowWholeValueFallback, !structured);
    }
    EXPECT_EQ(HostTriggerStrip::plan("nothing", "//note", 7, ""), HostTriggerStrip::Plan());
}
} // namespace
} // namespace snipwren
