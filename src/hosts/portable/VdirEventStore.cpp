#include "hosts/portable/VdirEventStore.h"

#include <cerrno>

#include <unistd.h>

#include "base/Text.h"
#include "hosts/portable/ICalendarText.h"

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

Result<std::string, EventStoreError> VdirEventStore::save(const Reminder& reminder, const EventList& list,
                                                          const std::string& uid, std::stop_token) {
    return write(list, uid, ICalendarText::reminder(reminder, uid, dependencies_.clock.now(), dependencies_.calendar));
}

Result<std::string, EventStoreError> VdirEventStore::save(const CalendarEvent& event, const EventList& list,
                                                          const std::string& uid, std::stop_token) {
    return write(list, uid, ICalendarText::event(event, uid, dependencies_.clock.now(), dependencies_.calendar));
}

std::string VdirEventStore::itemPath(const std::string& listId, const std::string& uid) {
    return joinedPath(listId, uid + ".ics");
}

Result<std::string, EventStoreError> VdirEventStore::write(const EventList& list, const std::string& uid,
                                                           const std::string& text) {
    const std::string path = itemPath(list.id, uid);
    // Files are whole or missing, so this one is that item; it may have been edited since.
    if (dependencies_.files.exists(path)) return uid;
    const auto written = dependencies_.files.writeAtomic(path, text, privateFileMode);
    if (!written) return unexpected(EventStoreError{written.error().description});
    return uid;
}

Result<void, EventStoreError> VdirEventStore::remove(EventEntity entity, const std::string& listId,
                                                     const std::string& uid, std::stop_token) {
    const std::string path = itemPath(listId, uid);
    if (!dependencies_.files.exists(path)) return unexpected(EventStoreError::missing(entity));
    if (const auto removed = dependencies_.files.remove(path); !removed)
        return unexpected(EventStoreError{removed.error().description});
    return {};
}
} // namespace snipwren
