// `snipwren scheduled`: the pending timers and alarms of every Snipwren program of this user.
#include <algorithm>
#include <memory>
#include <ostream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "app/Scheduling.h"
#include "app/SystemServices.h"
#include "base/Text.h"
#include "cli/Command.h"

namespace snipwren {
namespace {
/// A command that lists has no panel; the desktop program, if there is one, shows its own.
class NoPanel final : public HeadsUpPanel {
public:
    void show(const HeadsUp&) override {}
};

struct Session {
    explicit Session(Environment& environment)
        : services(environment),
          scheduling(environment, services.notificationCenter(), panel) {}
    SystemServices services;
    NoPanel panel;
    Scheduling scheduling;
};

using Captures = std::vector<PendingScheduledCapture>;

std::optional<Captures> list(CommandContext& context, Session& session) {
    auto pending = session.scheduling.scheduler().listPendingCaptures();
    if (pending) return *pending;
    context.fail("The pending timers and alarms could not be read: " + pending.error().description);
    return std::nullopt;
}

std::string remaining(const PendingScheduledCapture& capture, TimePoint now) {
    if (!capture.fireDate) return "?";
    return ActiveCountdownController::remainingText(*capture.fireDate - now);
}

nlohmann::json jsonOf(const PendingScheduledCapture& capture, TimePoint now) {
    nlohmann::json entry{{"id", capture.id},
                         {"kind", capture.kindName()},
                         {"title", sanitizedUtf8(capture.title)},
                         {"subtitle", sanitizedUtf8(capture.subtitle)}};
    if (capture.fireDate) {
        entry["fireAt"] = isoUtc(*capture.fireDate);
        entry["remainingSeconds"] = std::max(0.0, std::chrono::duration<double>(*capture.fireDate - now).count());
    }
    if (capture.scheduledAt) entry["scheduledAt"] = isoUtc(*capture.scheduledAt);
    return entry;
}

/// One line each: titles are what someone typed.
std::string printable(const std::string& text) {
    std::string line;
    for (const char c : collapsedWhitespace(text))
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) line += c;
    return line;
}

void printList(CommandContext& context, bool json) {
    Session session(context.environment);
    const auto captures = list(context, session);
    if (!captures) return;
    const TimePoint now = context.environment.clock().now();
    if (json) {
        nlohmann::json all = nlohmann::json::array();
        for (const PendingScheduledCapture& capture : *captures) all.push_back(jsonOf(capture, now));
        context.out << all.dump(2) << "\n";
        return;
    }
    if (captures->empty()) {
        context.out << "No timers or alarms are pending.\n";
        return;
    }
    for (const PendingScheduledCapture& capture : *captures)
        context.out << fmt::format(
            "{:36}  {:5}  {:>9}  {}  {}\n", capture.id, capture.kindLabel(), remaining(capture, now),
            capture.fireDate ? context.environment.calendar().formatDateTime(*capture.fireDate) : std::string("?"),
            printable(capture.title));
}

void cancel(CommandContext& context, const std::string& wanted) {
    Session session(context.environment);
    const auto captures = list(context, session);
    if (!captures) return;
    Captures matching;
    for (const PendingScheduledCapture& capture : *captures) {
        if (capture.id == wanted) {
            matching = {capture};
            break;
        }
        if (asciiLowercased(capture.id).rfind(asciiLowercased(wanted), 0) == 0) matching.push_back(capture);
    }
    if (wanted.empty() || matching.empty())
        return context.fail("No pending timer or alarm has the identifier \"" + wanted
                            + "\". Try: snipwren scheduled list");
    if (matching.size() > 1)
        return context.fail("Several identifiers begin with \"" + wanted + "\". Give more of the identifier.");
    const PendingScheduledCapture& capture = matching.front();
    if (const auto cancelled = session.scheduling.scheduler().cancelPendingCapture(capture.id); !cancelled)
        return context.fail("It could not be cancelled: " + cancelled.error().description);
    context.out << "Cancelled " << capture.kindName() << " \"" << printable(capture.title) << "\".\n";
}

/// Until nothing is pending any more.
void watch(CommandContext& context, bool json) {
    Session session(context.environment);
    const auto captures = list(context, session);
    if (!captures) return;
    bool over = captures->empty();
    if (over && !json) context.out << "No timers or alarms are pending.\n";
    session.scheduling.start();
    session.scheduling.startCountdown([&](const std::optional<ActiveCountdownController::Countdown>& countdown) {
        if (!countdown) {
            over = true;
        } else if (json) {
            nlohmann::json line = jsonOf(countdown->capture, context.environment.clock().now());
            line["text"] = countdown->text;
            context.out << line.dump() << "\n" << std::flush;
        } else {
            context.out << fmt::format("{:>9}  {}\n", countdown->text, printable(countdown->capture.title))
                        << std::flush;
        }
    });
    while (!over) context.environment.loop().runUntil([&] { return over; }, std::chrono::hours(1));
    session.scheduling.stopCountdown();
}
} // namespace

void addScheduledCommand(CLI::App& app, CommandContext& context) {
    CLI::App* scheduled = app.add_subcommand("scheduled", "List, watch and cancel the pending timers and alarms");
    const auto json = std::make_shared<bool>(false);
    const auto watching = std::make_shared<bool>(false);
    const auto id = std::make_shared<std::string>();
    scheduled->add_flag("--json", *json, "Print JSON");
    scheduled->add_flag("--watch", *watching, "Count down the next one, a line a second, until nothing is pending");
    scheduled->footer("Examples:\n  snipwren capture timer 25m tea\n  snipwren scheduled --watch\n"
                      "  snipwren scheduled cancel 3F2A");
    CLI::App* all = scheduled->add_subcommand("list", "List them, the next one first (the default)");
    all->add_flag("--json", *json, "Print JSON");
    CLI::App* cancelled = scheduled->add_subcommand("cancel", "Cancel one");
    cancelled->add_option("ID", *id, "Its identifier, or the beginning of it")->required();
    cancelled->callback([&context, id] { cancel(context, *id); });
    scheduled->callback([&context, cancelled, json, watching] {
        if (cancelled->parsed()) return;
        *watching ? watch(context, *json) : printList(context, *json);
    });
}
} // namespace snipwren
