#include "hosts/linux/accessibility/AtSpiTextUnits.h"

#include <gtest/gtest.h>

namespace snipwren {
namespace {
const std::string emoji = "a\xF0\x9F\x98\x80z"; // 3 code points, 4 UTF-16 units.

TEST(AtSpiTextUnits, FindsTheUnitByTheProgramsOwnCount) {
    const auto points = AtSpiTextUnits::of(emoji, 3);
    ASSERT_TRUE(points);
    EXPECT_FALSE(points->countsUtf16());
    const auto units = AtSpiTextUnits::of(emoji, 4);
    ASSERT_TRUE(units);
    EXPECT_TRUE(units->countsUtf16());
    // Bytes, one too many, and nonsense: no offset of such a program can be trusted.
    for (const int count : {6, 5, 2, 0, -1}) EXPECT_FALSE(AtSpiTextUnits::of(emoji, count)) << count;
    EXPECT_TRUE(AtSpiTextUnits::of("", 0));
}

TEST(AtSpiTextUnits, ConvertsBothWaysAndClampsWhatLiesOutside) {
    struct Row {
        int count, offset;
        std::size_t utf16;
    };
    for (const Row& row :
         {Row{3, 0, 0}, Row{3, 1, 1}, Row{3, 2, 3}, Row{3, 3, 4}, Row{4, 1, 1}, Row{4, 3, 3}, Row{4, 4, 4}}) {
        const auto units = AtSpiTextUnits::of(emoji, row.count);
        ASSERT_TRUE(units);
        EXPECT_EQ(units->toUtf16(row.offset), row.utf16) << row.count << " " << row.offset;
        EXPECT_EQ(units->fromUtf16(row.utf16), row.offset) << row.count << " " << row.utf16;
    }
    const auto points = AtSpiTextUnits::of(emoji, 3);
    EXPECT_EQ(points->toUtf16(-5), 0u);
    EXPECT_EQ(points->toUtf16(1000), 4u);
    EXPECT_EQ(points->fromUtf16(1000), 3);
    // Inside of the pair nothing can be cut: its beginning.
    EXPECT_EQ(points->fromUtf16(2), 1);
}
} // namespace
} // namespace snipwren
