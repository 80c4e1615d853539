#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/ManualClock.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/UserDefaults.h"
#include "capture/CaptureRouterController.h"
#include "platform/virtual/VirtualDesktop.h"
#include "platform/virtual/VirtualOverlay.h"
#include "support/TemporaryFolder.h"
#include "trigger/EventTapManager.h"

namespace snipwren {
/// A target that records what it is sent and fails when told to.
class FakeTarget final : public CaptureTarget {
public:
    explicit FakeTarget(std::string name, std::vector<PickerOption> options = {})
        : name_(std::move(name)),
          options_(std::move(options)) {}

    const std::string& commandName() const override { return name_; }
    bool needsPicker() const override { return !options_.empty(); }
    std::vector<PickerOption> pickerOptions(std::stop_token) override { return options_; }
    std::vector<PickerOption> filteredOptions(const std::string& query) const override {
        std::vector<PickerOption> found;
        for (const PickerOption& option : options_)
            if (option.displayName.find(query) != std::string::npos) found.push_back(option);
        return found;
    }
    Result<void, CaptureError> send(const std::string& text, const std::optional<PickerOption>& option,
                                    std::stop_token) override {
        sent.push_back(option ? option->id + ": " + text : text);
        if (failure) return unexpected(*failure);
        return {};
    }

    std::vector<std::string> sent;
    std::optional<CaptureError> failure;

private:
    const std::string name_;
    const std::vector<PickerOption> options_;
};

class FakeRecorder final : public CaptureRecorder {
public:
    bool saveFallback(const std::string& text, const std::string& target, const CaptureError& error) override {
        if (diskFull) return false;
        saved.push_back(target + ": " + text + " (" + error.description + ")");
        return true;
    }
    void record(const std::string& target, const std::string& text, bool success) override {
        recorded.push_back(target + ": " + text + (success ? " ok" : " failed"));
    }
    RecoveryAction resolve(const std::string&, const std::string&) const override {
        return {"Error Logs", "", "Show recovery log"};
    }

    bool diskFull = false;
    std::vector<std::string> saved;
    std::vector<std::string> recorded;
};

class FakeExclusions final : public AppExclusions {
public:
    bool isExcluded(const RunningApplication& application) override { return application.bundleId == excluded; }
    std::string excluded;
};

class FakeAlerts final : public AlertPresenter {
public:
    void present(const Alert& alert, std::function<void(int)> answered) override {
        shown.push_back(alert);
        if (answered) answered(answer);
    }
    std::vector<Alert> shown;
    int answer = -1;
};

/// The road of a capture, driven by hand: the real tap manager and router on the virtual desktop, one manual queue for
/// the main and every other queue, a clock that stands still. Keys still pass through the tap's own thread.
class CaptureRig {
public:
    explicit CaptureRig(bool startTap = true) {
        for (const char* word : {"note", "reminders", "copy", "timer", "calc"})
            targets.push_back(std::make_unique<FakeTarget>(word));
        note = static_cast<FakeTarget*>(targets.front().get());
        targets.push_back(std::make_unique<FakeTarget>("obsidian"));
        targets.push_back(std::make_unique<FakeTarget>(
            "slack", std::vector<PickerOption>{{"C1", "#general"}, {"C2", "#random"}, {"U1", "@ana"}}));
        slack = static_cast<FakeTarget*>(targets.back().get());
        router = std::make_unique<CaptureRouterController>(
            CaptureRouterController::Dependencies{
                .workspace = desktop,
                .fields = desktop,
                .keyboard = desktop,
                .screens = desktop,
                .overlay = overlay,
                .recorder = recorder,
                .notifications = notifications,
                .defaults = defaults,
                .files = files,
                .paths = paths,
                .mainQueue = queue,
                .captureTransitionQueue = transitionQueue,
                .sends = sends,
                .clock = clock,
                .log = log,
                .pause = [this](std::chrono::microseconds time) { pauses.push_back(time); },
                .preview = [](const std::string& word, const std::string& text) -> std::optional<std::string> {
                    return word + "(" + text + ")";
                },
                .requestPermission = [this](const std::string& word) { permissionsAsked.push_back(word); },
                .keyInterestChanged = {}},
            std::move(targets));
        tap = std::make_unique<EventTapManager>(EventTapManager::Dependencies{.taps = desktop,
                                                                              .permissions = desktop,
                                                                              .workspace = desktop,
                                                                              .ownWindows = overlay,
                                                                              .router = *router,
                                                                              .exclusions = exclusions,
                                                                              .keyboard = desktop,
                                                                              .alerts = alerts,
                                                                              .notifications = notifications,
                                                                              .defaults = defaults,
                                                                              .mainQueue = queue,
                                                                              .processingQueue = processing,
                                                                              .clock = clock,
                                                                              .log = log});
        overlay.setRouter(router.get());
        desktop.setKeyWindow(&overlay);
        desktop.setFocusObserver([this](const std::string& bundleId, const FieldDescription& description) {
            router->focusChanged(bundleId, description);
        });
        field = desktop.addField("com.example.editor", VirtualFieldKind::plain);
        desktop.focus(field);
        if (!startTap) return;
        tap->start();
        desktop.waitForTap();
    }
    ~CaptureRig() {
        desktop.setFocusObserver({});
        tap->stop();
    }

    /// Types and lets everything that follows happen.
    void type(std::string_view text) {
        desktop.type(text);
        settle();
    }
    void settle() {
        while (queue.runReady() + transitionQueue.runReady() + processing.runReady() > 0) continue;
    }
    /// A notification's texts, each time it is posted.
    std::shared_ptr<std::vector<UserInfo>> watch(const std::string& name) {
        auto seen = std::make_shared<std::vector<UserInfo>>();
        subscriptions.push_back(notifications.observe(name, [seen](const UserInfo& info) { seen->push_back(info); }));
        return seen;
    }
    bool logged(std::string_view part) const {
        for (const std::string& line : log.lines())
            if (line.find(part) != std::string::npos) return true;
        return false;
    }
    std::string text() const { return desktop.text(field); }

    ManualClock clock{fromSecondsSince1970(1'700'000'000)};
    ManualQueue queue{"main", clock};
    ManualQueue transitionQueue{"transition", clock};
    ManualQueue processing{"processing", clock};
    QueueRunner sends{queue};
    NotificationCenter notifications{queue};
    MemoryLog log;
    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    UserDefaults defaults{files, paths.defaultsFile};
    VirtualDesktop desktop;
    VirtualOverlay overlay{queue};
    FakeRecorder recorder;
    FakeExclusions exclusions;
    FakeAlerts alerts;
    std::vector<std::chrono::microseconds> pauses;
    std::vector<std::string> permissionsAsked;
    std::vector<NotificationCenter::Subscription> subscriptions;
    CaptureRouterController::Targets targets;
    FakeTarget* note = nullptr;
    FakeTarget* slack = nullptr;
    VirtualDesktop::FieldId field = 0;
    std::unique_ptr<CaptureRouterController> router;
    std::unique_ptr<EventTapManager> tap;
};
} // namespace snipwren
