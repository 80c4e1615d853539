#include "capture/OpenCaptureDraft.h"

#include <gtest/gtest.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
struct OpenCaptureDraftTest : testing::Test {
    /// "cancelled: half a thought", of each capture that the journal holds.
    std::vector<std::string> written() {
        rig.journalQueue.advance(OpenCaptureDraft::delay);
        std::vector<std::string> lines;
        const auto entries = rig.journal.entries();
        for (const auto& entry : *entries)
            lines.push_back((entry.state == CaptureJournal::State::cancelled ? "cancelled: " : "open: ") + entry.text);
        return lines;
    }
    using Lines = std::vector<std::string>;

    DeliveryRig rig;
    OpenCaptureDraft draft{rig.journal, rig.journalQueue};
};

TEST_F(OpenCaptureDraftTest, WritesTheNewestTextAMomentAfterEachChange) {
    draft.begin("note");
    for (const char* text : {"h", "ha", "half"}) draft.changed(text);
    const int before = rig.files.operations;
    EXPECT_EQ(written(), Lines{"open: half"});
    EXPECT_EQ(rig.files.operations, before + 1) << "once for all three";
    draft.changed("half a thought");
    EXPECT_EQ(written(), Lines{"open: half a thought"});
}

TEST_F(OpenCaptureDraftTest, NothingIsWrittenAfterTheEnd) {
    draft.begin("note");
    draft.changed("confirmed");
    draft.end();
    EXPECT_EQ(written(), Lines{}) << "the confirmed capture stands for it";
    draft.begin("note");
    draft.changed("the next one");
    EXPECT_EQ(written(), Lines{"open: the next one"});
}

// Whatever of it has been written must not be found by the next program as if it had been cut off.
TEST_F(OpenCaptureDraftTest, ACancelledDraftIsNeverLeftOpen) {
    draft.begin("note");
    draft.changed("half a thought");
    written();
    draft.changed("");
    draft.cancel("");
    EXPECT_EQ(written(), Lines{"cancelled: "});
    draft.begin("note");
    draft.cancel(" ");
    EXPECT_EQ(written().size(), 1U) << "nothing was ever typed";
    draft.begin("note");
    draft.changed("offered again");
    draft.cancel("offered again");
    EXPECT_EQ(written().back(), "cancelled: offered again");
}
} // namespace
} // namespace snipwren
