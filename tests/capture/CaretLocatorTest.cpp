#include "capture/CaretLocator.h"

#include <gtest/gtest.h>

#include "base/ManualClock.h"
#include "support/FakeField.h"

namespace snipwren {
namespace {
class TwoScreens final : public ScreenGeometry {
public:
    std::vector<Screen> screens() const override {
        return {{{0, 0, 1440, 900}, {0, 25, 1440, 875}, 1}, {{1440, 0, 1920, 1080}, {1440, 0, 1920, 1080}, 1}};
    }
    Point mouseLocation() const override { return {720, 450}; }
};

TEST(CaretLocator, BelievesOnlyPlacesOnAScreen) {
    const Rect field{1500, 100, 300, 20};
    const Rect pointer{720, 450, 0, 0};
    const struct {
        const char* name;
        std::optional<Rect> caret;
        std::optional<Rect> field;
        Rect want;
    } cases[] = {
        {"the second screen", Rect{1600, 110, 1, 18}, field, {1600, 110, 1, 18}},
        {"as tall as the second screen", Rect{1600, 0, 1, 1080}, field, {1600, 0, 1, 1080}},
        {"as tall as the first", Rect{1600, 0, 1, 900}, field, field},
        {"nowhere", std::nullopt, field, field},
        {"both off the screens", Rect{5000, 0, 1, 18}, Rect{5000, 0, 300, 20}, pointer},
        {"nothing is said", std::nullopt, std::nullopt, pointer},
    };
    const ManualClock clock(TimePoint{});
    const TwoScreens screens;
    MemoryLog log;
    for (const auto& row : cases) {
        FakeFieldElement element;
        element.caret = row.caret;
        element.place = row.field;
        EXPECT_EQ(CaretLocator(screens, clock, log).locate(&element), row.want) << row.name;
    }
}
} // namespace
} // namespace snipwren
