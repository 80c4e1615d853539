#include "capture/Delivery.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
namespace {
using Entry = CaptureJournal::Entry;

std::string counted(std::size_t count, const char* rest) {
    return std::to_string(count) + (count == 1 ? " capture" : " captures") + rest;
}
} // namespace

class Delivery::Attempt final : public CaptureAttempt {
public:
    Attempt(const Entry& capture, CaptureJournal& journal, std::stop_token stop)
        : capture_(capture),
          journal_(journal),
          stop_(std::move(stop)) {}

    const std::string& captureId() const override { return capture_.id; }
    TimePoint confirmedAt() const override { return capture_.at; }
    const std::stop_token& stop() const override { return stop_; }
    const std::optional<std::string>& earlierNote() const override { return capture_.note; }
    Result<void, CaptureError> note(const std::string& evidence) override {
        const auto written = journal_.attempted(capture_.id, evidence);
        if (!written)
            return unexpected(CaptureError{"CaptureJournal", written.error().code, written.error().description});
        return {};
    }

private:
    const Entry& capture_;
    CaptureJournal& journal_;
    const std::stop_token stop_;
};

Delivery::Delivery(const Dependencies& dependencies) : to_(dependencies) {}

Delivery::~Delivery() {
    alive_.reset();
    {
        const std::lock_guard lock(mutex_);
        isFinishing_ = true;
    }
    stop_.request_stop();
    lanes_.clear();
}

CaptureJournal::Entry Delivery::entryOf(const Request& request) const {
    Entry capture;
    capture.id = request.id.empty() ? to_.journal.newId() : request.id;
    capture.target = request.target;
    capture.text = request.text;
    if (request.option) {
        capture.optionId = request.option->id;
        capture.optionName = request.option->displayName;
    }
    capture.at = to_.clock.now();
    return capture;
}

void Delivery::keepUnconfirmed(const Request& request, const CaptureError& reason) {
    const Entry capture = entryOf(request);
    const bool saved = keep(capture, reason.description, false) && !trimmed(capture.text).empty();
    // The recovery log is its place now.
    (void)to_.journal.compact();
    tellFailure(capture, reason, saved);
}

Result<std::string, CaptureError> Delivery::accept(const Request& request) {
    CaptureTarget* const target = to_.targets.find(request.target);
    if (!target)
        return unexpected(
            CaptureError{"Delivery", 1, "There is no command word \"" + request.target + "\". Try: snipwren targets"});
    Entry capture = entryOf(request);
    capture.state = CaptureJournal::State::confirmed;
    if (const auto written = to_.journal.confirmed(capture); !written)
        return unexpected(CaptureError{"CaptureJournal", written.error().code,
                                       written.error().description + ". Nothing was captured. Try again."});
    const std::string id = capture.id;
    enqueue(std::move(capture), *target, request.isInRecoveryLog);
    return id;
}

SerialQueue& Delivery::lane(const CaptureTarget& target) {
    auto& lane = lanes_[target.commandName()];
    if (!lane) lane = to_.makeLane("com.snipwren.lane." + target.commandName());
    return *lane;
}

void Delivery::enqueue(Entry capture, CaptureTarget& target, bool isInRecoveryLog) {
    const auto item = std::make_shared<Item>();
    item->capture = std::move(capture);
    item->target = &target;
    item->isInRecoveryLog = isInRecoveryLog;
    item->since = to_.clock.steadyNow();
    const std::lock_guard lock(mutex_);
    if (isFinishing_) return; // The journal has it.
    items_[target.commandName()].push_back(item);
    item->timer = to_.mainQueue.asyncAfter(target.patience(), [this, alive = std::weak_ptr(alive_), item] {
        if (!alive.expired()) overdue(item);
    });
    lane(target).async([this, item] { run(item); });
}

void Delivery::run(const std::shared_ptr<Item>& item) {
    {
        const std::lock_guard lock(mutex_);
        if (isFinishing_) return;
    }
    auto waiting = Progress::waiting;
    if (!item->progress.compare_exchange_strong(waiting, Progress::sending)) return settle(item); // Elsewhere by now.
    const Entry& capture = item->capture;
    std::optional<PickerOption> option;
    if (!capture.optionId.empty()) option = PickerOption{capture.optionId, capture.optionName};
    Attempt attempt(capture, to_.journal, stop_.get_token());
    const auto sent = item->target->send(capture.text, option, attempt);
    if (sent) {
        item->progress = Progress::delivered;
        arrived(*item, *sent);
    } else {
        to_.log.line("❌ CaptureRouterController: Failed to send capture to '" + capture.target
                     + "': " + sent.error().description);
        // Cut off by our own end, it is the next program's to try; overdue, its text is in the recovery log already.
        if (!stop_.stop_requested() && item->progress == Progress::sending) failed(*item, sent.error());
    }
    settle(item);
}

void Delivery::arrived(const Item& item, const CaptureReceipt& receipt) {
    const Entry& capture = item.capture;
    if (const auto written = to_.journal.delivered(capture.id, receipt.sentence, receipt.undo); !written)
        to_.log.line("❌ Delivery: Could not note a delivery: " + written.error().description);
    to_.log.line("✅ CaptureRouterController: Successfully sent capture to '" + capture.target + "'");
    if (!receipt.sentence.empty())
        to_.landing.announce({capture.target, std::string(trimmed(capture.text)), receipt.sentence, receipt.revealPath,
                              receipt.systemImage, receipt.parksLoop, capture.id, !receipt.undo.empty()});
    to_.history.record(capture, true);
}

void Delivery::settle(const std::shared_ptr<Item>& item) {
    to_.mainQueue.cancel(item->timer);
    {
        const std::lock_guard lock(mutex_);
        std::erase(items_[item->capture.target], item);
    }
    to_.mainQueue.async([] {}); // Whoever waits for the end looks again.
}

void Delivery::overdue(const std::shared_ptr<Item>& item) {
    Progress before = Progress::waiting;
    if (!item->progress.compare_exchange_strong(before, Progress::offeredElsewhere)
        && (before != Progress::sending || !item->progress.compare_exchange_strong(before, Progress::offeredElsewhere)))
        return;
    const bool wasSending = before == Progress::sending;
    const std::string word = "//" + item->capture.target;
    const std::string limit = std::to_string(item->target->patience().count());
    const std::string reason = wasSending
                                   ? word + " has not answered for " + limit + " seconds. It may still arrive there."
                                   : "An earlier capture with " + word + " is stuck, so this one was not sent.";
    to_.journalQueue.async([this, item, reason] {
        if (item->progress != Progress::delivered) failed(*item, {"Delivery", 2, reason});
    });
}

bool Delivery::keep(const Entry& capture, const std::string& reason, bool wasConfirmed) {
    if (!to_.recoveryLog.saveFallback(capture.text, capture.target, reason) && !trimmed(capture.text).empty())
        return false; // The journal goes on holding it, and the next program tries again.
    if (const auto written = to_.journal.failed(capture.id, reason); !written)
        to_.log.line("❌ Delivery: Could not note a failure: " + written.error().description);
    if (!wasConfirmed) (void)to_.journal.recorded(capture.id);
    return true;
}

void Delivery::failed(const Item& item, const CaptureError& error) {
    const Entry& capture = item.capture;
    bool saved = item.isInRecoveryLog;
    if (saved) {
        (void)to_.journal.failed(capture.id, error.description);
    } else {
        saved = keep(capture, error.description) && !trimmed(capture.text).empty();
    }
    to_.history.record(capture, false);
    tellFailure(capture, error, saved);
}

void Delivery::tellFailure(const Entry& capture, const CaptureError& error, bool saved) {
    const CaptureFailureGuide guide = CaptureFailureGuide::resolve(to_.targets, capture.target, error.description);
    UserInfo notice{
        {"command", capture.target},
        {"detail", error.description},
        {"saved", saved},
        {"message", "Capture failed: " + error.description + (saved ? "\nSaved to local recovery log." : "")},
        {"section", guide.section},
        {"actionTitle", guide.actionTitle}};
    if (guide.field) notice.emplace("field", *guide.field);
    to_.notifications.post("PresentCaptureFailure", std::move(notice));
}

Delivery::Recovered Delivery::recover() {
    Recovered recovered;
    for (Entry& capture : to_.journal.adoptOrphans()) {
        CaptureTarget* const target = to_.targets.find(capture.target);
        const bool isConfirmed = capture.state != CaptureJournal::State::typing;
        if (isConfirmed && target && target->deliversAfter(to_.clock.now() - capture.at)) {
            recovered.delivering.push_back(capture);
            enqueue(std::move(capture), *target);
        } else if (trimmed(capture.text).empty()) {
            keep(capture, "", isConfirmed);
        } else if (keep(capture,
                        isConfirmed ? "Snipwren ended before this capture was delivered."
                                    : "Snipwren ended before Return was pressed.",
                        isConfirmed)) {
            if (isConfirmed) to_.history.record(capture, false);
            recovered.kept.push_back(std::move(capture));
        }
    }
    if (recovered.delivering.empty() && recovered.kept.empty()) return recovered;
    (void)to_.journal.compact(); // Kept texts have their place in the recovery log now.
    std::string sentence = "Snipwren ended unexpectedly last time.";
    if (const auto count = recovered.delivering.size(); count > 0)
        sentence += " " + counted(count, count == 1 ? " is being delivered now." : " are being delivered now.");
    if (const auto count = recovered.kept.size(); count > 0)
        sentence += " " + counted(count, count == 1 ? " is in the recovery log." : " are in the recovery log.");
    to_.log.line("🔍 Delivery: " + sentence);
    const CaptureFailureGuide& guide = CaptureFailureGuide::recovery();
    to_.notifications.post("PresentCaptureFailure", {{"command", "capture"},
                                                     {"detail", sentence},
                                                     {"message", sentence},
                                                     {"saved", !recovered.kept.empty()},
                                                     {"informational", true},
                                                     {"section", guide.section},
                                                     {"actionTitle", guide.actionTitle}});
    return recovered;
}

Result<Entry, CaptureError> Delivery::undoable(const std::string& id) const {
    const auto refuse = [](const char* sentence) { return unexpected(CaptureError{"Delivery", 3, sentence}); };
    auto entries = to_.journal.entries();
    if (!entries) return unexpected(CaptureError{"Delivery", entries.error().code, entries.error().description});
    const auto found =
        std::find_if(entries->begin(), entries->end(), [&](const Entry& entry) { return entry.id == id; });
    if (found == entries->end() || found->undo.empty()) return refuse("There is no capture that can be undone.");
    if (found->state == CaptureJournal::State::undone) return refuse("This capture has been undone already.");
    if (found->state != CaptureJournal::State::delivered || !to_.targets.find(found->target))
        return refuse("There is no capture that can be undone.");
    return std::move(*found);
}

void Delivery::undo(const std::string& id, const UndoDone& done) {
    const auto found = undoable(id);
    if (!found) return done(unexpected(found.error()));
    CaptureTarget* const target = to_.targets.find(found->target);
    std::unique_lock lock(mutex_);
    if (isFinishing_) {
        lock.unlock();
        return done(unexpected(CaptureError{"Delivery", 3, "Snipwren is ending. Try again once it runs."}));
    }
    lane(*target).async([this, target, id, done] {
        // A second click may have waited behind the first.
        const auto capture = undoable(id);
        if (!capture) return done(unexpected(capture.error()));
        auto outcome = target->undo(capture->text, capture->undo, stop_.get_token());
        if (outcome) {
            if (const auto written = to_.journal.undone(id); !written)
                to_.log.line("❌ Delivery: Could not note an undo: " + written.error().description);
            to_.log.line("↩ Delivery: Took back a capture of '" + capture->target + "'");
        }
        done(outcome);
    });
}

void Delivery::undoLast(const UndoDone& done) {
    const auto last = to_.journal.lastUndoable();
    undo(last ? last->id : std::string(), done);
}

bool Delivery::isIdle() const {
    const std::lock_guard lock(mutex_);
    return std::all_of(items_.begin(), items_.end(), [](const auto& lane) {
        return std::all_of(lane.second.begin(), lane.second.end(),
                           [](const auto& item) { return item->progress == Progress::offeredElsewhere; });
    });
}

std::vector<Delivery::Backlog> Delivery::backlog() const {
    const SteadyPoint now = to_.clock.steadyNow();
    std::vector<Backlog> behind;
    const std::lock_guard lock(mutex_);
    for (const auto& target : to_.targets) {
        const auto found = items_.find(target->commandName());
        if (found == items_.end() || found->second.empty()) continue;
        const auto age = std::chrono::duration_cast<std::chrono::seconds>(now - found->second.front()->since);
        if (age >= behindAfter) behind.push_back({found->first, found->second.size(), age});
    }
    return behind;
}

bool Delivery::finish(std::chrono::milliseconds limit) {
    {
        const std::lock_guard lock(mutex_);
        isFinishing_ = true;
    }
    stop_.request_stop();
    bool ended = true;
    const auto end = to_.clock.steadyNow() + limit;
    for (auto& [word, lane] : lanes_) {
        const auto left = std::max<std::chrono::nanoseconds>(end - to_.clock.steadyNow(), std::chrono::nanoseconds(0));
        ended = lane->finish(left) && ended;
    }
    return ended;
}
} // namespace snipwren
