#include "hosts/virtual/VirtualField.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
/// Presses keys as a person does: "\b" is Delete, "\n" Return, "<" and ">" the arrows.
void press(VirtualField& field, std::string_view keys) {
    for (std::size_t i = 0; i < keys.size();) {
        const std::size_t start = i;
        const char32_t scalar = nextScalar(keys, i);
        KeyEvent event;
        event.characters = keys.substr(start, i - start);
        event.keyCode = scalar == U'\b'   ? keycode::deleteKey
                        : scalar == U'\n' ? keycode::returnKey
                        : scalar == U'<'  ? keycode::leftArrow
                        : scalar == U'>'  ? keycode::rightArrow
                                          : 0;
        field.apply(event);
    }
}

// Every test of a whole capture believes it to do what real fields do.
TEST(VirtualField, EditsAsARealFieldDoes) {
    const struct {
        const char* name;
        const char* keys;
        const char* want;
        std::size_t caret;
    } cases[] = {
        {"inserts at the caret", "ac<b", "abc", 2},
        {"ends at both sides", "a<<<b>>>c", "bac", 3},
        {"deletes before the caret", "abc<\b", "ac", 1},
        {"nothing to delete", "\b\ba", "a", 1},
        {"deletes what a person sees as one", "a\u00e9\U0001F600\b\b", "a", 1},
        {"a pair of units at a time", "\U0001F600\b", "", 0},
        {"no line in a single one", "a\nb", "ab", 2},
    };
    for (const auto& row : cases) {
        VirtualField field(VirtualFieldKind::plain, "Text", "Window", {0, 0, 100, 20});
        press(field, row.keys);
        EXPECT_EQ(field.text(), row.want) << row.name;
        EXPECT_EQ(field.selection(), (Utf16Range{row.caret, 0})) << row.name;
    }
}

TEST(VirtualField, ReplacesASelectionOnce) {
    VirtualField field(VirtualFieldKind::plain, "Text", "Window", {0, 0, 100, 20});
    field.setText("one two three");
    field.select({4, 3});
    press(field, "2!");
    EXPECT_EQ(field.text(), "one 2! three");
    field.select({3, 99});
    press(field, "\b\b");
    EXPECT_EQ(field.text(), "on");
}
} // namespace
} // namespace snipwren
