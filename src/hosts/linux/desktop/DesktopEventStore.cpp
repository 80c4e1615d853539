#include "hosts/linux/desktop/DesktopEventStore.h"

namespace snipwren {
bool DesktopEventStore::usesService(EventEntity entity) const {
    const std::string setting = defaults_.string(storeSetting).value_or("auto");
    if (setting == "eds") return true;
    if (setting == "vdir") return false;
    const char* const folder =
        entity == EventEntity::reminder ? VdirEventStore::remindersSetting : VdirEventStore::calendarSetting;
    return defaults_.string(folder).value_or("").empty() && service_.isAvailable();
}

EventStore& DesktopEventStore::chosen(EventEntity entity) const {
    if (usesService(entity)) return service_;
    return folders_;
}

bool DesktopEventStore::requestAccess(EventEntity entity, std::stop_token stop) {
    return chosen(entity).requestAccess(entity, stop);
}

Result<std::optional<EventList>, EventStoreError> DesktopEventStore::defaultList(EventEntity entity,
                                                                                 std::stop_token stop) {
    // Asked for by name and not there: the user has no list, which is told in the target's words.
    if (usesService(entity) && !service_.isAvailable()) return std::nullopt;
    return chosen(entity).defaultList(entity, stop);
}

EventStore& DesktopEventStore::storeOf(const std::string& listId) const {
    // The folders' lists are absolute paths. The setting may have changed since the list was asked for.
    if (!listId.empty() && listId.front() == '/') return folders_;
    return service_;
}

Result<std::string, EventStoreError> DesktopEventStore::save(const Reminder& reminder, const EventList& list,
                                                             const std::string& uid, std::stop_token stop) {
    return storeOf(list.id).save(reminder, list, uid, stop);
}

Result<std::string, EventStoreError> DesktopEventStore::save(const CalendarEvent& event, const EventList& list,
                                                             const std::string& uid, std::stop_token stop) {
    return storeOf(list.id).save(event, list, uid, stop);
}

Result<void, EventStoreError> DesktopEventStore::remove(EventEntity entity, const std::string& listId,
                                                        const std::string& uid, std::stop_token stop) {
    return storeOf(listId).remove(entity, listId, uid, stop);
}

bool DesktopEventStore::ringsAlarms() const { return chosen(EventEntity::reminder).ringsAlarms(); }

std::optional<std::string> DesktopEventStore::revealPath(EventEntity entity) const {
    return chosen(entity).revealPath(entity);
}
} // namespace snipwren
