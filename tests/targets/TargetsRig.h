#pragma once

#include <functional>

#include "base/FileIO.h"
#include "base/UserDefaults.h"
#include "capture/CaptureTargets.h"
#include "hosts/virtual/VirtualEventStore.h"
#include "hosts/virtual/VirtualPasteboard.h"
#include "platform/HttpClient.h"
#include "store/KeychainHelper.h"
#include "support/FakeAttempt.h"
#include "support/FakeLegacyKeychain.h"
#include "support/SchedulingRig.h"
#include "support/TemporaryFolder.h"
#include "targets/AlarmTarget.h"
#include "targets/CalcTarget.h"
#include "targets/CalendarTarget.h"
#include "targets/ClipboardTarget.h"
#include "targets/LocalNoteTarget.h"
#include "targets/LogseqTarget.h"
#include "targets/ObsidianTarget.h"
#include "targets/RemindersTarget.h"
#include "targets/SlackTarget.h"
#include "targets/TimerTarget.h"

namespace snipwren {
/// All ten targets with all that they need, set up so that each can deliver. Friday, 15 January 2027, 08:00 UTC.
struct TargetsRig : SchedulingRig {
    struct AgreeingServer final : HttpClient {
        Result<HttpResponse, HttpError> send(const HttpRequest&, std::stop_token) override {
            return HttpResponse{200, {}, R"({"ok":true})", ""};
        }
    };

    TargetsRig() {
        (void)defaults.set(ObsidianTarget::vaultKey, paths.home);
        (void)defaults.set(LogseqTarget::graphKey, paths.home);
        secrets.save(SlackTarget::tokenOwner, SlackTarget::tokenKey, "xoxp-secret");
    }
    /// On the main queue, where those that need it find themselves.
    Result<CaptureReceipt, CaptureError> send(CaptureTarget& target, const std::string& text, CaptureAttempt& attempt) {
        return onMainQueue([&] { return target.send(text, PickerOption{"C1", "#general"}, attempt); });
    }
    Result<CaptureReceipt, CaptureError> send(CaptureTarget& target, const std::string& text) {
        FakeAttempt attempt(clock.now(), asciiLowercased(random.uuid()));
        return send(target, text, attempt);
    }
    /// The sentence for the user, whether it worked or not.
    std::string undo(CaptureTarget& target, const std::string& text, const std::string& undo) {
        const auto answer = onMainQueue([&] { return target.undo(text, undo, {}); });
        return answer ? *answer : answer.error().description;
    }
    template <class F>
    auto onMainQueue(F function) -> decltype(function()) {
        std::optional<decltype(function())> value;
        mainQueue.async([&] { value.emplace(function()); });
        mainQueue.runReady();
        return *std::move(value);
    }

    TemporaryFolder folder{TemporaryFolder::inMemory()};
    PosixFileIO files;
    Paths paths = [this] {
        Paths all = Paths::under(folder.path());
        all.home = folder.path();
        return all;
    }();
    UserDefaults defaults{files, folder.file("defaults.json")};
    ManualQueue secretsQueue{KeychainHelper::queueLabel, clock};
    FakeLegacyKeychain keychain;
    KeychainHelper secrets{{files, paths, secretsQueue, log, keychain, true}};
    AgreeingServer http;
    VirtualEventStore store;
    VirtualPasteboard pasteboard;
    CaptureTargets targets{[this] {
        CaptureTargets::List all;
        all.push_back(std::make_unique<LocalNoteTarget>(LocalNoteTarget::Dependencies{files, paths, calendar, log}));
        all.push_back(
            std::make_unique<RemindersTarget>(RemindersTarget::Dependencies{store, scheduler, calendar, clock, log}));
        all.push_back(std::make_unique<ClipboardTarget>(pasteboard, mainQueue, log));
        all.push_back(std::make_unique<TimerTarget>(TimerTarget::Dependencies{scheduler, calendar, clock, log}));
        all.push_back(std::make_unique<CalcTarget>(CalcTarget::Dependencies{pasteboard, mainQueue, log}));
        all.push_back(std::make_unique<AlarmTarget>(AlarmTarget::Dependencies{scheduler, calendar, clock, log}));
        all.push_back(std::make_unique<CalendarTarget>(CalendarTarget::Dependencies{store, calendar, clock, log}));
        all.push_back(
            std::make_unique<ObsidianTarget>(ObsidianTarget::Dependencies{files, paths, defaults, calendar, log}));
        all.push_back(std::make_unique<SlackTarget>(SlackTarget::Dependencies{http, secrets, clock, log}));
        all.push_back(
            std::make_unique<LogseqTarget>(LogseqTarget::Dependencies{files, paths, defaults, calendar, log}));
        return all;
    }()};
};
} // namespace snipwren
