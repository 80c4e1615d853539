#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/ManualClock.h"
#include "base/ManualQueue.h"
#include "base/NotificationCenter.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/ThreadQueue.h"
#include "base/UserDefaults.h"
#include "capture/CaptureRouterController.h"
#include "hosts/virtual/VirtualDesktop.h"
#include "hosts/virtual/VirtualOverlay.h"
#include "store/DatabaseManager.h"
#include "support/FaultyFileIO.h"
#include "support/RecordingLanding.h"
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
    std::vector<PickerOption> pickerOptions(std::stop_token) override {
        ++loads;
        return options_;
    }
    std::vector<PickerOption> filteredOptions(const std::string& query) const override {
        std::vector<PickerOption> found;
        for (const PickerOption& option : options_)
            if (option.displayName.find(query) != std::string::npos) found.push_back(option);
        return found;
    }
    std::optional<std::string> preview(const std::string& text) const override { return name_ + "(" + text + ")"; }
    bool previewIsResult() const override { return name_ == "calc"; }
    std::optional<std::string> readiness() const override { return missing; }
    bool deliversAfter(Duration) const override { return deliversLate; }
    Result<CaptureReceipt, CaptureError> send(const std::string& text, const std::optional<PickerOption>& option,
                                              CaptureAttempt& attempt) override {
        if (onSend) onSend(attempt);
        sent.push_back(option ? option->id + ": " + text : text);
        if (failure) return unexpected(*failure);
        CaptureReceipt receipt;
        receipt.sentence = "Kept";
        if (canUndo) receipt.undo = "undo " + text;
        return receipt;
    }
    Result<std::string, CaptureError> undo(const std::string& text, const std::string& what, std::stop_token) override {
        undone.push_back(what);
        return "Took back " + text;
    }

    std::vector<std::string> sent;
    std::vector<std::string> undone;
    int loads = 0;
    std::optional<CaptureError> failure;
    std::optional<std::string> missing;
    bool deliversLate = true;
    bool canUndo = true;
    /// Before anything is recorded, on the lane.
    std::function<void(CaptureAttempt&)> onSend;

private:
    const std::string name_;
    const std::vector<PickerOption> options_;
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

/// The virtual desktop's own, which remembers who was called back and can be told that another window of the same
/// application is in front.
class FrontWorkspace final : public Workspace {
public:
    explicit FrontWorkspace(Workspace& real) : real_(real) {}
    std::shared_ptr<const RunningApplication> frontmostApplication() const override {
        if (window == 0) return real_.frontmostApplication();
        const auto front = real_.frontmostApplication();
        if (!front) return nullptr;
        RunningApplication other = *front;
        other.window = window;
        return std::make_shared<const RunningApplication>(std::move(other));
    }
    bool isSecureInputEnabled() const override { return real_.isSecureInputEnabled(); }
    bool mayInputMethodEdit() const override { return real_.mayInputMethodEdit(); }
    void activate(const RunningApplication& application) override { activated.push_back(application.bundleId); }
    bool open(const std::string& pathOrUrl) override { return real_.open(pathOrUrl); }
    bool openSettings(const std::string& section, const std::string& field) override {
        return real_.openSettings(section, field);
    }
    std::atomic<std::uint64_t> window = 0;
    std::vector<std::string> activated;

private:
    Workspace& real_;
};

/// A queue that hands every task to another one.
class BorrowedQueue final : public SerialQueue {
public:
    explicit BorrowedQueue(SerialQueue& lender) : lender_(lender) {}
    const std::string& label() const override { return lender_.label(); }
    void async(Task task) override { lender_.async(std::move(task)); }
    TimerId asyncAfter(std::chrono::nanoseconds delay, Task task) override {
        return lender_.asyncAfter(delay, std::move(task));
    }
    bool cancel(TimerId timer) override { return lender_.cancel(timer); }
    bool isCurrent() const override { return lender_.isCurrent(); }

private:
    SerialQueue& lender_;
};

/// What stands behind a confirmed capture, driven by hand: the real journal, delivery, history and recovery log in a
/// scratch folder, a manual queue for each of them, a clock that stands still.
class DeliveryRig {
public:
    DeliveryRig() : DeliveryRig(std::make_shared<TemporaryFolder>(TemporaryFolder::inMemory())) {}
    /// In the folder of an earlier rig: the next program.
    explicit DeliveryRig(std::shared_ptr<TemporaryFolder> inFolder) : folder(std::move(inFolder)) {
        database.open();
        history.open();
        if (!journal.open()) std::abort(); // Benchmarks use this too, which have no test framework.
    }

    static CaptureTargets::List makeTargets() {
        CaptureTargets::List targets;
        for (const char* word : {"note", "reminders", "copy", "timer", "calc", "obsidian"})
            targets.push_back(std::make_unique<FakeTarget>(word));
        targets.push_back(std::make_unique<FakeTarget>(
            "slack", std::vector<PickerOption>{{"C1", "#general"}, {"C2", "#random"}, {"U1", "@ana"}}));
        return targets;
    }
    FakeTarget& target(const std::string& word) const { return *static_cast<FakeTarget*>(targets.find(word)); }

    using MakeLane = std::function<std::unique_ptr<SerialQueue>(const std::string& label)>;
    /// For a delivery of one's own over the same parts.
    Delivery::Dependencies deliveryWith(MakeLane makeLane) {
        return {.targets = targets,
                .journal = journal,
                .recoveryLog = recoveryLog,
                .history = feed,
                .landing = landing,
                .notifications = notifications,
                .mainQueue = queue,
                .journalQueue = journalQueue,
                .clock = clock,
                .log = log,
                .makeLane = std::move(makeLane)};
    }
    /// As in the program: a real thread.
    static std::unique_ptr<SerialQueue> threadLane(const std::string& label) {
        auto lane = std::make_unique<ThreadQueue>(label);
        lane->start();
        return lane;
    }

    void settle() {
        while (queue.runReady() + journalQueue.runReady() + laneQueue.runReady() + historyQueue.runReady() > 0)
            continue;
    }
    /// "note: buy milk ok", oldest first.
    std::vector<std::string> recorded() {
        std::vector<std::string> lines;
        auto entries = history.recentEntries("");
        std::ranges::sort(entries, std::ranges::greater(), &CaptureHistoryEntry::id);
        for (const auto& entry : entries)
            lines.insert(lines.begin(), entry.target + ": " + entry.text + (entry.success ? " ok" : " failed"));
        return lines;
    }
    /// "note: buy milk (why)", oldest first.
    std::vector<std::string> saved() const {
        std::vector<std::string> lines;
        for (const auto& entry : recoveryLog.readEntries())
            lines.insert(lines.begin(), entry.target + ": " + entry.text + " (" + entry.errorDescription + ")");
        return lines;
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

    std::shared_ptr<TemporaryFolder> folder;
    ManualClock clock{fromSecondsSince1970(1'700'000'000)};
    ManualQueue queue{"main", clock};
    ManualQueue journalQueue{"journal", clock};
    ManualQueue laneQueue{"lanes", clock};
    ManualQueue historyQueue{"history", clock};
    ManualQueue databaseQueue{"database", clock};
    NotificationCenter notifications{queue};
    MemoryLog log;
    SystemRandom random;
    FaultyFileIO files;
    Paths paths = Paths::under(folder->path());
    UserDefaults defaults{files, paths.defaultsFile};
    DatabaseManager database{{files, paths, clock, defaults, databaseQueue, log}};
    CaptureHistoryStore history{{database, clock, notifications, log}};
    FallbackCaptureLogger recoveryLog{files, paths, clock, notifications};
    CaptureJournal journal{{files, paths, clock, random, log, {}}};
    CaptureHistoryFeed feed{{history, journal, historyQueue}};
    RecordingLanding landing;
    CaptureTargets targets{makeTargets()};
    std::vector<NotificationCenter::Subscription> subscriptions;
    Delivery delivery{deliveryWith([this](const std::string&) { return std::make_unique<BorrowedQueue>(laneQueue); })};
};

/// Holds whoever comes to it until somebody opens it: a server that does not answer.
struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool isOpen = false;
    std::atomic<bool> isReached = false;
    void wait() {
        isReached = true;
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return isOpen; });
    }
    void open() {
        const std::lock_guard lock(mutex);
        isOpen = true;
        changed.notify_all();
    }
};

/// The road of a capture, driven by hand: the real tap manager and router on the virtual desktop before the delivery's
/// own parts. Keys still pass through the tap's own thread.
class CaptureRig : public DeliveryRig {
public:
    explicit CaptureRig(bool startTap = true) {
        note = &target("note");
        slack = &target("slack");
        router = std::make_unique<CaptureRouterController>(
            CaptureRouterController::Dependencies{.workspace = workspace,
                                                  .fields = desktop,
                                                  .keyboard = desktop,
                                                  .screens = desktop,
                                                  .overlay = overlay,
                                                  .targets = targets,
                                                  .journal = journal,
                                                  .delivery = delivery,
                                                  .notifications = notifications,
                                                  .mainQueue = queue,
                                                  .captureTransitionQueue = transitionQueue,
                                                  .journalQueue = journalQueue,
                                                  .loads = loads,
                                                  .clock = clock,
                                                  .log = log,
                                                  .pause = [this](std::chrono::microseconds time) { pause(time); },
                                                  .keyInterestChanged = {}});
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
        overlay.setListener(router.get());
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
    void press(int keyCode, const std::string& characters = {}, const Modifiers& modifiers = {}) {
        KeyEvent event;
        event.keyCode = keyCode;
        event.characters = characters;
        event.modifiers = modifiers;
        desktop.press(event);
        settle();
    }
    void settle() {
        do DeliveryRig::settle();
        while (transitionQueue.runReady() + processing.runReady() + queue.runReady() > 0);
    }
    std::string text() const { return desktop.text(field); }

    ManualQueue transitionQueue{"transition", clock};
    ManualQueue processing{"processing", clock};
    QueueRunner loads{queue};
    VirtualDesktop desktop;
    FrontWorkspace workspace{desktop};
    VirtualOverlay overlay{queue};
    FakeExclusions exclusions;
    FakeAlerts alerts;
    std::vector<std::chrono::microseconds> pauses;
    /// What happens while the stripper waits.
    std::function<void(std::chrono::microseconds)> pause = [this](std::chrono::microseconds time) {
        pauses.push_back(time);
    };
    FakeTarget* note = nullptr;
    FakeTarget* slack = nullptr;
    VirtualDesktop::FieldId field = 0;
    std::unique_ptr<CaptureRouterController> router;
    std::unique_ptr<EventTapManager> tap;
};
} // namespace snipwren
