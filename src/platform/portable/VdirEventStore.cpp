#include "platform/portable/VdirEventStore.h"

#include <cerrno>

#include <unistd.h>

#include "base/Text.h"
#include "platform/portable/ICalendarText.h"

namespace snipwren {
bool VdirEventStore::isChosen(EventEntity entity) const {
    const char* const key = entity == EventEntity::reminder ? remindersSetting : calendarSetting;
    return !dependencies_.defaults.string(key).value_or("").empty();
}

std::string VdirEventStore::folder(EventEntity entity) const {
    const bool isReminder = entity == EventEntity::reminder;
    const auto chosen = dependencies_.defaults.string(isReminder ? remindersSetting : calendarSetting);
    if (chosen && !chosen->empty()) return expandedTilde(*chosen, dependencies_.paths.home);
    return joinedPath(dependencies_.paths.documents, isReminder ? "Snipwren/Reminders" : "Snipwren/Calendar");
}

bool VdirEventStore::requestAccess(EventEntity entity, std::stop_token) {
    const std::string path = folder(entity);
    if (!isChosen(entity)) {
        const auto made = dependencies_.files.createFolders(path);
        if (!made) return made.error().code != EACCES && made.error().code != EPERM;
    }
    return ::access(path.c_str(), R_OK | X_OK) == 0 || (errno != EACCES && errno != EPERM);
}

Result<std::optional<EventList>, EventStoreError> VdirEventStore::defaultList(EventEntity entity, std::stop_token) {
    const std::string path = folder(entity);
    if (!isChosen(entity)) {
        // A full disk or a file in the way is worth its own words.
        if (const auto made = dependencies_.files.createFolders(path); !made)
            return unexpected(EventStoreError{made.error().description});
    }
    if (!dependencies_.files.isFolder(path) || ::access(path.c_str(), W_OK | X_OK) != 0) return std::nullopt;
    // The name that other programs show for the folder.
    const auto name = dependencies_.files.read(joinedPath(path, "displayname"));
    const std::string title(name ? trimmed(*name) : std::string_view());
    return EventList{path, title.empty() ? fileName(path) : title};
}

std::string VdirEventStore::newIdentifier() const { return asciiLowercased(dependencies_.random.uuid()); }

Result<std::string, EventStoreError> VdirEventStore::save(const Reminder& reminder, const EventList& list,
                                                          std::stop_token) {
    const std::string uid = newIdentifier();
    return write(list, uid, ICalendarText::reminder(reminder, uid, dependencies_.clock.now(), dependencies_.calendar));
}

Result<std::string, EventStoreError> VdirEventStore::save(const CalendarEvent& event, const EventList& list,
                                                          std::stop_token) {
    const std::string uid = newIdentifier();
    return write(list, uid, ICalendarText::event(event, uid, dependencies_.clock.now(), dependencies_.calendar));
}

Result<std::string, EventStoreError> VdirEventStore::write(const EventList& list, const std::string& uid,
                                                           const std::string& text) {
    const auto written = dependencies_.files.writeAtomic(joinedPath(list.id, uid + ".ics"), text, privateFileMode);
    if (!written) return unexpected(EventStoreError{written.error().description});
    return uid;
}
} // namespace snipwren
