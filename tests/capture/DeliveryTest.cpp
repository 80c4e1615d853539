#include "capture/Delivery.h"

#include <gtest/gtest.h>

#include "support/CaptureRig.h"

namespace snipwren {
namespace {
using Texts = std::vector<std::string>;

Delivery::Request request(const std::string& target, const std::string& text) { return {{}, target, text, {}}; }

TEST(Delivery, ConfirmsDeliversAndRecords) {
    DeliveryRig rig;
    const auto id = rig.delivery.accept({{}, "slack", "hello", PickerOption{"C1", "#general"}});
    ASSERT_TRUE(id);
    EXPECT_EQ(rig.journal.entries()->front().state, CaptureJournal::State::confirmed) << "before anything is sent";
    EXPECT_FALSE(rig.delivery.isIdle());
    rig.settle();
    EXPECT_TRUE(rig.delivery.isIdle());
    EXPECT_EQ(rig.target("slack").sent, Texts{"C1: hello"});
    EXPECT_EQ(rig.recorded(), Texts{"slack: hello ok"});
    ASSERT_EQ(rig.landing.landings().size(), 1U);
    EXPECT_EQ(rig.landing.landings()[0].captureId, *id);
    EXPECT_TRUE(rig.landing.landings()[0].canUndo);
    EXPECT_TRUE(rig.saved().empty());
}

TEST(Delivery, KeepsAFailedCaptureAndNamesTheNextStep) {
    for (const bool diskFull : {false, true}) {
        DeliveryRig rig;
        const auto failures = rig.watch("PresentCaptureFailure");
        rig.target("note").failure = CaptureError{"LocalNoteTarget", 28, "No space left."};
        ASSERT_TRUE(rig.delivery.accept(request("note", "buy milk")));
        if (diskFull) {
            rig.files.code = ENOSPC;
            rig.files.failAllFromThen = true;
            rig.files.failAt = rig.files.operations + 1;
        }
        rig.settle();
        rig.files.failAt = 0;
        EXPECT_EQ(rig.saved(), diskFull ? Texts{} : Texts{"note: buy milk (No space left.)"});
        ASSERT_EQ(failures->size(), 1U);
        EXPECT_EQ(text(failures->front(), "message"),
                  diskFull ? "Capture failed: No space left."
                           : "Capture failed: No space left.\nSaved to local recovery log.");
        EXPECT_EQ(flag(failures->front(), "saved"), !diskFull);
        EXPECT_EQ(text(failures->front(), "actionTitle"), "Show recovery log");
        EXPECT_EQ(failures->front().count("field"), 0U);
        // What the recovery log could not take is still in the journal, for the next program.
        const auto left = rig.journal.entries();
        EXPECT_EQ(left->size(), diskFull ? 1U : 0U);
        EXPECT_EQ(rig.recorded(), Texts{"note: buy milk failed"});
    }
}

TEST(Delivery, WhatTheDiskDoesNotTakeIsNotConfirmed) {
    DeliveryRig rig;
    rig.files.code = EIO;
    rig.files.failAt = rig.files.operations + 1;
    const auto accepted = rig.delivery.accept(request("note", "buy milk"));
    ASSERT_FALSE(accepted);
    EXPECT_NE(accepted.error().description.find("Nothing was captured."), std::string::npos);
    rig.settle();
    EXPECT_TRUE(rig.target("note").sent.empty());
    EXPECT_FALSE(rig.delivery.accept(request("nowhere", "x")));
}

TEST(Delivery, TheNextProgramDeliversOrKeepsWhatAnEndedOneLeft) {
    auto folder = std::make_shared<TemporaryFolder>(TemporaryFolder::inMemory());
    {
        DeliveryRig ended(folder);
        ASSERT_TRUE(ended.delivery.accept(request("note", "on its way")));
        ASSERT_TRUE(ended.delivery.accept(request("copy", "of an hour ago")));
        ASSERT_TRUE(ended.journal.typed("t", "timer", "25m fo"));
        ASSERT_TRUE(ended.journal.typed("e", "note", "  "));
        ASSERT_TRUE(ended.journal.confirmed([&] {
            CaptureJournal::Entry attempted;
            attempted.id = "n";
            attempted.target = "note";
            attempted.text = "cut off";
            attempted.at = ended.clock.now();
            return attempted;
        }()));
        ASSERT_TRUE(ended.journal.attempted("n", "evidence"));
    }
    DeliveryRig rig(folder);
    const auto told = rig.watch("PresentCaptureFailure");
    rig.target("copy").deliversLate = false;
    std::vector<std::optional<std::string>> notes;
    rig.target("note").onSend = [&](CaptureAttempt& attempt) { notes.push_back(attempt.earlierNote()); };
    const auto recovered = rig.delivery.recover();
    rig.settle();
    EXPECT_EQ(recovered.delivering.size(), 2U);
    EXPECT_EQ(rig.target("note").sent, (Texts{"on its way", "cut off"}));
    EXPECT_EQ(notes, (std::vector<std::optional<std::string>>{std::nullopt, "evidence"}));
    EXPECT_TRUE(rig.target("copy").sent.empty());
    EXPECT_EQ(rig.saved(), (Texts{"copy: of an hour ago (Snipwren ended before this capture was delivered.)",
                                  "timer: 25m fo (Snipwren ended before Return was pressed.)"}));
    ASSERT_EQ(told->size(), 1U) << "once";
    EXPECT_EQ(text(told->front(), "message"), "Snipwren ended unexpectedly last time. 2 captures are being delivered "
                                              "now. 2 captures are in the recovery log.");
    EXPECT_TRUE(rig.delivery.recover().delivering.empty());
    const auto all = rig.journal.entries();
    for (const auto& entry : *all) EXPECT_FALSE(entry.isOpen()) << "'" << entry.text << "' would be found again";
    rig.settle();
    EXPECT_EQ(told->size(), 1U);
    const auto entries = rig.journal.entries();
    for (const auto& entry : *entries) EXPECT_FALSE(entry.isOpen()) << entry.text;
    EXPECT_EQ(rig.recorded(), (Texts{"copy: of an hour ago failed", "note: on its way ok", "note: cut off ok"}));
}

TEST(Delivery, TheHistoryCatchesUpWithTheJournal) {
    auto folder = std::make_shared<TemporaryFolder>(TemporaryFolder::inMemory());
    {
        DeliveryRig ended(folder);
        ASSERT_TRUE(ended.delivery.accept(request("note", "one")));
        ended.queue.runReady();
        ended.laneQueue.runReady(); // Delivered; its history queue never gets a turn.
    }
    DeliveryRig rig(folder);
    EXPECT_TRUE(rig.recorded().empty());
    rig.feed.catchUp();
    rig.feed.catchUp();
    rig.settle();
    EXPECT_EQ(rig.recorded(), Texts{"note: one ok"});
    EXPECT_TRUE(rig.journal.entries()->front().isRecorded);
}

TEST(Delivery, AStuckLaneOffersItsTextsForElsewhere) {
    DeliveryRig rig;
    const auto failures = rig.watch("PresentCaptureFailure");
    ASSERT_TRUE(rig.delivery.accept(request("note", "first")));
    ASSERT_TRUE(rig.delivery.accept(request("note", "second")));
    rig.clock.advance(Delivery::behindAfter - std::chrono::seconds(1)); // No lane gets a turn.
    EXPECT_TRUE(rig.delivery.backlog().empty());
    rig.clock.advance(std::chrono::seconds(1));
    const auto behind = rig.delivery.backlog();
    ASSERT_EQ(behind.size(), 1U);
    EXPECT_EQ(behind[0].target + " " + std::to_string(behind[0].waiting), "note 2");
    rig.queue.advance(std::chrono::seconds(20));
    rig.journalQueue.runReady();
    rig.queue.runReady();
    EXPECT_EQ(failures->size(), 2U);
    EXPECT_EQ(rig.saved(),
              (Texts{"note: first (An earlier capture with //note is stuck, so this one was not sent.)",
                     "note: second (An earlier capture with //note is stuck, so this one was not sent.)"}));
    EXPECT_TRUE(rig.delivery.isIdle()) << "nobody has to wait for them any more";
    rig.settle();
    EXPECT_TRUE(rig.target("note").sent.empty()) << "what is offered for elsewhere is not sent here as well";
    EXPECT_TRUE(rig.delivery.backlog().empty());
}

TEST(Delivery, OneThatArrivesAfterAllIsDelivered) {
    DeliveryRig rig;
    rig.target("note").onSend = [&](CaptureAttempt&) { rig.queue.advance(std::chrono::seconds(20)); };
    ASSERT_TRUE(rig.delivery.accept(request("note", "late")));
    rig.settle();
    EXPECT_EQ(rig.recorded(), Texts{"note: late ok"});
    EXPECT_TRUE(rig.saved().empty()) << "it arrived before its text was put elsewhere";
}

TEST(Delivery, OneThatFailsAfterItWasPutElsewhereIsNotPutThereTwice) {
    DeliveryRig rig;
    rig.target("note").onSend = [&](CaptureAttempt&) {
        rig.queue.advance(std::chrono::seconds(20));
        rig.journalQueue.runReady();
    };
    rig.target("note").failure = CaptureError{"LocalNoteTarget", 5, "It broke."};
    ASSERT_TRUE(rig.delivery.accept(request("note", "late")));
    rig.settle();
    ASSERT_EQ(rig.saved().size(), 1U);
    EXPECT_NE(rig.saved()[0].find("has not answered for"), std::string::npos) << rig.saved()[0];
}

// What our own end interrupts has not failed: the next program tries it again.
TEST(Delivery, OneThatItsOwnProgramCutsOffIsLeftToTheNext) {
    DeliveryRig rig;
    rig.target("note").onSend = [&](CaptureAttempt&) { rig.delivery.finish(std::chrono::milliseconds(0)); };
    rig.target("note").failure = CaptureError{"LocalNoteTarget", 4, "Interrupted."};
    ASSERT_TRUE(rig.delivery.accept(request("note", "cut off")));
    rig.settle();
    EXPECT_TRUE(rig.saved().empty());
    EXPECT_TRUE(rig.journal.entries()->front().isOpen());
}

/// A lane that a target holds for as long as it may.
class HeldLane final : public SerialQueue {
public:
    HeldLane(std::string label, ManualClock& clock, std::vector<std::string>& ended)
        : label_(std::move(label)),
          clock_(clock),
          ended_(ended) {}
    const std::string& label() const override { return label_; }
    void async(Task) override {}
    TimerId asyncAfter(std::chrono::nanoseconds, Task) override { return 1; }
    bool cancel(TimerId) override { return false; }
    bool isCurrent() const override { return false; }
    bool finish(std::chrono::nanoseconds limit) override {
        clock_.advance(std::chrono::ceil<Duration>(limit));
        ended_.push_back(label_);
        return false;
    }

private:
    const std::string label_;
    ManualClock& clock_;
    std::vector<std::string>& ended_;
};

TEST(Delivery, EndsEveryLaneWithinOneLimit) {
    DeliveryRig rig;
    std::vector<std::string> ended;
    Delivery delivery(rig.deliveryWith(
        [&](const std::string& label) { return std::make_unique<HeldLane>(label, rig.clock, ended); }));
    for (const char* word : {"note", "copy", "timer"}) ASSERT_TRUE(delivery.accept(request(word, "x")));
    const auto begun = rig.clock.steadyNow();
    EXPECT_FALSE(delivery.finish(std::chrono::seconds(2)));
    EXPECT_EQ(ended.size(), 3U);
    EXPECT_EQ(rig.clock.steadyNow() - begun, std::chrono::seconds(2));
}

TEST(Delivery, TakesTheLastCaptureBackOnce) {
    DeliveryRig rig;
    rig.target("copy").canUndo = false;
    for (const auto& [word, text] : {std::pair{"note", "one"}, {"note", "two"}, {"copy", "three"}}) {
        ASSERT_TRUE(rig.delivery.accept(request(word, text)));
        rig.settle();
        rig.clock.advance(std::chrono::seconds(1));
    }
    Texts outcomes;
    const auto done = [&](const Result<std::string, CaptureError>& outcome) {
        outcomes.push_back(outcome ? *outcome : outcome.error().description);
    };
    const std::string first = rig.landing.landings()[0].captureId;
    for (int i = 0; i < 3; ++i) {
        rig.delivery.undoLast(done);
        rig.settle();
    }
    rig.delivery.undo(first, done);
    EXPECT_EQ(outcomes, (Texts{"Took back two", "Took back one", "There is no capture that can be undone.",
                               "This capture has been undone already."}));
    EXPECT_EQ(rig.target("note").undone, (Texts{"undo two", "undo one"}));

    // A second click, while the first still waits in the lane.
    outcomes.clear();
    const auto id = rig.delivery.accept(request("note", "four"));
    rig.settle();
    rig.delivery.undo(*id, done);
    rig.delivery.undo(*id, done);
    rig.settle();
    EXPECT_EQ(outcomes, (Texts{"Took back four", "This capture has been undone already."}));
    EXPECT_EQ(rig.target("note").undone, (Texts{"undo two", "undo one", "undo four"}));
}

// With real threads: a server that never answers must not keep other targets' captures, and not the program's end.
TEST(Delivery, AStuckTargetHoldsUpNoOtherAndNotTheEnd) {
    DeliveryRig rig;
    Gate gate;
    rig.target("slack").onSend = [&](CaptureAttempt&) { gate.wait(); };
    Delivery delivery(rig.deliveryWith(DeliveryRig::threadLane));
    ASSERT_TRUE(delivery.accept({{}, "slack", "stuck", PickerOption{"C1", "#general"}}));
    ASSERT_TRUE(delivery.accept({{}, "slack", "behind it", PickerOption{"C1", "#general"}}));
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(delivery.accept(request("note", std::to_string(i))));
        ASSERT_TRUE(delivery.accept(request("timer", std::to_string(i))));
    }
    while (rig.landing.landings().size() < 20 || !gate.isReached) std::this_thread::yield();
    EXPECT_EQ(rig.target("note").sent, (Texts{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"})) << "in order";
    EXPECT_FALSE(delivery.isIdle());
    EXPECT_FALSE(delivery.finish(std::chrono::milliseconds(20))) << "says that one thread is held";
    std::size_t open = 0;
    const auto entries = rig.journal.entries();
    for (const auto& entry : *entries) open += entry.isOpen() ? 1 : 0;
    EXPECT_EQ(open, 2U) << "kept for the next program";
    EXPECT_TRUE(delivery.accept(request("note", "after the end"))) << "kept as well";
    gate.open();
    EXPECT_TRUE(delivery.finish(std::chrono::minutes(1)));
    EXPECT_EQ(rig.target("slack").sent.size(), 1U) << "nothing begins during the end";
}
} // namespace
} // namespace snipwren
