#include <condition_variable>

#include <gtest/gtest.h>

#include "app/Application.h"
#include "app/VirtualHost.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
/// Holds whoever waits until it is opened.
class Gate {
public:
    void wait() {
        std::unique_lock lock(mutex_);
        isReached_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return isOpen_; });
    }
    void waitUntilReached() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isReached_; });
    }
    void open() {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isReached_ = false;
    bool isOpen_ = false;
};

/// A host whose programs do not answer.
class SilentFields final : public FocusedField {
public:
    explicit SilentFields(Gate& gate) : gate_(gate) {}
    std::shared_ptr<FieldElement> focusedElement() override {
        gate_.wait();
        return nullptr;
    }
    void setFocusObserver(FocusObserver) override {}

private:
    Gate& gate_;
};

struct ApplicationEnd : testing::Test {
    TemporaryFolder folder;
    Environment environment{Paths::under(folder.path())};
    VirtualHost host{environment.mainQueue(), environment.clock(), {}};

    Host hostWith(FocusedField& fields) {
        const Host h = host.host();
        return {h.taps,       h.permissions, h.workspace,  fields,   h.keyboard, h.screens,
                h.overlay,    h.ownWindows,  h.pasteboard, h.alerts, h.headsUp,  h.notificationCenter,
                h.eventStore, h.landing,     h.mainQueue};
    }
    std::size_t unfinished() {
        const auto entries = CaptureJournal({environment.files(),
                                             environment.paths(),
                                             environment.clock(),
                                             environment.random(),
                                             environment.log(),
                                             {}})
                                 .entries();
        return static_cast<std::size_t>(
            std::count_if(entries->begin(), entries->end(), [](const auto& entry) { return entry.isOpen(); }));
    }
};

// The clipboard is the main thread's, and that is the one that waits for the end.
TEST_F(ApplicationEnd, ACaptureThatNeedsTheMainThreadDoesNotHoldItsEnd) {
    Application application(environment, host.host());
    application.open();
    ASSERT_TRUE(application.delivery().accept({{}, "copy", "for the clipboard", {}}));
    EXPECT_TRUE(application.finish(std::chrono::minutes(1))) << "every thread came back by itself";
    EXPECT_FALSE(host.pasteboard().string()) << "nothing is copied behind the user's back";
    EXPECT_EQ(unfinished(), 1U) << "kept for the next program";
}

TEST_F(ApplicationEnd, AWalkWhoseFieldDoesNotAnswerDoesNotHoldIt) {
    Gate gate;
    SilentFields fields(gate);
    Application application(environment, hostWith(fields));
    application.open();
    application.router().enterCaptureModeUI(*application.targets().find("note"));
    environment.loop().runReady();
    gate.waitUntilReached();
    EXPECT_FALSE(application.finish(std::chrono::milliseconds(50))) << "says that a thread is held";
    gate.open(); // What a program does not wait for, a test has to: its parts are about to go.
}

TEST_F(ApplicationEnd, WhatStandsInAnOpenOverlayIsKept) {
    Application application(environment, host.host());
    host.overlay().setListener(&application.router());
    application.open();
    application.router().enterCaptureModeUI(*application.targets().find("note"));
    environment.loop().runUntil([&] { return application.router().phase() == CapturePhase::capturing; },
                                std::chrono::minutes(1));
    application.router().handleMessageInputChange("half a thought");
    EXPECT_TRUE(application.finish(std::chrono::minutes(1)));
    EXPECT_EQ(application.recoveryLog().readEntries().size(), 1U);
    EXPECT_EQ(unfinished(), 0U);
}
} // namespace
} // namespace snipwren
