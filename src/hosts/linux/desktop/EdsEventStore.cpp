#include "hosts/linux/desktop/EdsEventStore.h"

#include <algorithm>

#include <sdbus-c++/sdbus-c++.h>

#include "base/Text.h"
#include "hosts/linux/desktop/BoundedProcess.h"
#include "hosts/linux/desktop/ProgramLauncher.h"
#include "hosts/portable/ICalendarText.h"

namespace snipwren {
namespace {
constexpr const char* helperName = "snipwren-eds";
/// Exit statuses that the helper gives its answers with.
constexpr int statusNone = 3;
constexpr int statusReadOnly = 4;
constexpr int statusMissing = 5;

const char* nameOf(EventEntity entity) { return entity == EventEntity::reminder ? "reminder" : "event"; }

std::vector<std::string> busNames(const char* method) {
    std::vector<std::string> names;
    try {
        const auto connection = sdbus::createSessionBusConnection();
        sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus")
            ->callMethod(method)
            .onInterface("org.freedesktop.DBus")
            .withTimeout(std::chrono::seconds(2))
            .storeResultsTo(names);
    } catch (const sdbus::Error&) {
        // Without a session bus there are no names on it.
    }
    return names;
}

bool hasPrefix(const std::vector<std::string>& names, std::string_view prefix) {
    return std::any_of(names.begin(), names.end(), [&](const auto& name) { return name.rfind(prefix, 0) == 0; });
}

constexpr const char* filesInstead = " To keep items in files instead: snipwren config set eventStore vdir";

EventStoreError errorOf(const BoundedProcess::Outcome& outcome) {
    const std::string_view told = trimmed(outcome.errors);
    const std::string_view last = told.substr(told.rfind('\n') == std::string_view::npos ? 0 : told.rfind('\n') + 1);
    std::string sentence =
        "The calendar service refused the request" + (last.empty() ? "" : ": " + sanitizedUtf8(last));
    if (sentence.back() != '.') sentence += '.';
    return {sentence + filesInstead};
}

EventStoreError errorOf(const BoundedProcess::Error& error) {
    return {"The calendar service does not answer. " + error.description + filesInstead};
}

EventStoreError notInstalled() { return {std::string("The program snipwren-eds is not installed.") + filesInstead}; }
} // namespace

EdsEventStore::EdsEventStore(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}
EdsEventStore::~EdsEventStore() = default;

std::optional<std::string> EdsEventStore::helper() const {
    if (!dependencies_.helperProgram.empty()) return dependencies_.helperProgram;
    return ProgramLauncher::find(helperName);
}

bool EdsEventStore::isAvailable() {
    if (!helper()) return false;
    // Asked of the bus, because the service's own library answers cheerfully when there is no service.
    for (const char* method : {"ListActivatableNames", "ListNames"}) {
        const auto names = busNames(method);
        if (hasPrefix(names, "org.gnome.evolution.dataserver.Sources")
            && hasPrefix(names, "org.gnome.evolution.dataserver.Calendar"))
            return true;
    }
    return false;
}

bool EdsEventStore::requestAccess(EventEntity, std::stop_token stop) { return !stop.stop_requested(); }

bool EdsEventStore::ringsAlarms() const { return hasPrefix(busNames("ListNames"), "org.gnome.Evolution-alarm-notify"); }

Result<std::optional<EventList>, EventStoreError> EdsEventStore::defaultList(EventEntity entity, std::stop_token stop) {
    const auto program = helper();
    if (!program) return unexpected(notInstalled());
    const auto outcome = BoundedProcess::run({*program, "default", nameOf(entity)}, "", dependencies_.limit, stop);
    if (!outcome) return unexpected(errorOf(outcome.error()));
    if (outcome->status == statusNone || outcome->status == statusReadOnly) return std::nullopt;
    if (outcome->status != 0) return unexpected(errorOf(*outcome));
    const auto lines = split(outcome->output, '\n');
    if (lines.size() < 2 || lines[0].empty()) return unexpected(errorOf(*outcome));
    return EventList{std::string(lines[0]), sanitizedUtf8(lines[1])};
}

Result<std::string, EventStoreError> EdsEventStore::save(const Reminder& reminder, const EventList& list,
                                                         const std::string& uid, std::stop_token stop) {
    return add(EventEntity::reminder, list.id, uid,
               ICalendarText::reminder(reminder, uid, dependencies_.clock.now(), dependencies_.calendar), stop);
}

Result<std::string, EventStoreError> EdsEventStore::save(const CalendarEvent& event, const EventList& list,
                                                         const std::string& uid, std::stop_token stop) {
    return add(EventEntity::event, list.id, uid,
               ICalendarText::event(event, uid, dependencies_.clock.now(), dependencies_.calendar), stop);
}

Result<std::string, EventStoreError> EdsEventStore::add(EventEntity entity, const std::string& listId,
                                                        const std::string& uid, const std::string& text,
                                                        std::stop_token stop) {
    const auto program = helper();
    if (!program) return unexpected(notInstalled());
    const auto outcome =
        BoundedProcess::run({*program, "add", nameOf(entity), listId}, text, dependencies_.limit, stop);
    if (!outcome) return unexpected(errorOf(outcome.error()));
    if (outcome->status != 0) return unexpected(errorOf(*outcome));
    const std::string_view told = trimmed(outcome->output);
    return told.empty() ? uid : std::string(told);
}

Result<void, EventStoreError> EdsEventStore::remove(EventEntity entity, const std::string& listId,
                                                    const std::string& uid, std::stop_token stop) {
    const auto program = helper();
    if (!program) return unexpected(notInstalled());
    const auto outcome =
        BoundedProcess::run({*program, "remove", nameOf(entity), listId, uid}, "", dependencies_.limit, stop);
    if (!outcome) return unexpected(errorOf(outcome.error()));
    if (outcome->status == statusMissing) return unexpected(EventStoreError::missing(entity));
    if (outcome->status != 0) return unexpected(errorOf(*outcome));
    return {};
}
} // namespace snipwren
