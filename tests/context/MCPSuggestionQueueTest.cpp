#include "context/server/MCPSuggestionQueue.h"

#include <gtest/gtest.h>

#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"

namespace snipwren {
namespace {
class MCPSuggestionQueueTest : public testing::Test {
protected:
    MCPSuggestion suggestion(const std::string& id, std::int64_t priority, int seconds = 60) {
        return {id, "title", {}, "act", priority, clock.now() + std::chrono::seconds(seconds), {}};
    }
    std::string ids() {
        std::string all;
        for (const auto& one : suggestions.suggestions()) all += one.id;
        return all;
    }

    ManualClock clock{TimePoint{}};
    ManualQueue queue{MCPSuggestionQueue::queueLabel, clock};
    ManualQueue mainQueue{"main", clock};
    NotificationCenter notifications{mainQueue};
    MCPSuggestionQueue suggestions{queue, clock, notifications};
};

TEST_F(MCPSuggestionQueueTest, OrdersByPriorityThenAge) {
    suggestions.push({suggestion("a", 1), suggestion("b", 5), suggestion("c", 1)});
    suggestions.push({suggestion("d", 5), suggestion("e", -3)});
    EXPECT_EQ(ids(), "bdace");
    suggestions.push({suggestion("e", 9)});
    EXPECT_EQ(ids(), "ebdac") << "the same id replaces";
    suggestions.clear({"b", "unknown", "c"});
    EXPECT_EQ(ids(), "eda");
    suggestions.clear();
    EXPECT_EQ(ids(), "");
}

TEST_F(MCPSuggestionQueueTest, ExpiredOnesLeaveBeforeAnyoneSeesThem) {
    suggestions.push({suggestion("a", 1, 10), suggestion("b", 2, 20), suggestion("past", 3, -1)});
    EXPECT_EQ(ids(), "ba");
    clock.advance(std::chrono::seconds(10));
    EXPECT_EQ(ids(), "b") << "gone at its moment, not after it";
}

TEST_F(MCPSuggestionQueueTest, IsBoundedAndAnnouncesChanges) {
    int changes = 0;
    const auto subscription =
        notifications.observe(MCPSuggestionQueue::changedNotification, [&](const UserInfo&) { ++changes; });
    std::vector<MCPSuggestion> many;
    for (int i = 0; i < 2000; ++i) many.push_back(suggestion(std::to_string(i), i));
    suggestions.push(many);
    mainQueue.runReady();
    EXPECT_EQ(changes, 1);
    ASSERT_EQ(suggestions.suggestions().size(), MCPSuggestionQueue::capacity);
    EXPECT_EQ(suggestions.suggestions().front().id, "1999") << "the least important are dropped";
}
} // namespace
} // namespace snipwren
