// The one program that links Evolution Data Server's library. It does one thing and ends, so that whoever started it can
// kill it when the service hangs.
//   snipwren-eds default reminder|event            the default list: its identifier and its name, a line each
//   snipwren-eds add reminder|event LIST           saves the iCalendar item on standard input; its identifier. An item
//                                                  of that identifier that is there already is left as it is
//   snipwren-eds remove reminder|event LIST ITEM   removes the item
//   snipwren-eds show reminder|event LIST ITEM     the item as the service keeps it
// Exit status: 0 done, 1 failed (the reason on standard error), 2 wrong usage, 3 no default list, 4 it is read-only,
// 5 there is no such item.
#define LIBICAL_GLIB_UNSTABLE_API 1 // The library asks for it.
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include <libecal/libecal.h>

namespace {
constexpr int failed = 1;
constexpr int wrongUsage = 2;
constexpr int noDefault = 3;
constexpr int readOnly = 4;
constexpr int missing = 5;
/// Do not wait for the backend to be connected: any other value costs whole seconds, or for ever.
constexpr guint32 doNotWait = static_cast<guint32>(-1);

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class T>
using Ref = std::unique_ptr<T, Unref>;

int fail(const char* what, GError* error) {
    std::cerr << what << ": " << (error ? error->message : "unknown fault") << "\n";
    return failed;
}

struct Session {
    bool isReminder = false;
    Ref<ESourceRegistry> registry;

    Ref<ESource> defaultSource() const {
        return Ref<ESource>(isReminder ? e_source_registry_ref_default_task_list(registry.get())
                                       : e_source_registry_ref_default_calendar(registry.get()));
    }
    Ref<EClient> connect(ESource* source, GError** error) const {
        const auto type = isReminder ? E_CAL_CLIENT_SOURCE_TYPE_TASKS : E_CAL_CLIENT_SOURCE_TYPE_EVENTS;
        return Ref<EClient>(e_cal_client_connect_sync(source, type, doNotWait, nullptr, error));
    }
};

int showDefault(const Session& session) {
    const auto source = session.defaultSource();
    if (!source) return noDefault;
    GError* error = nullptr;
    const auto client = session.connect(source.get(), &error);
    if (!client) return fail("The default list cannot be opened", error);
    // The source's own word for it says "writable" of calendars that are not.
    if (e_client_is_readonly(client.get())) return readOnly;
    std::cout << e_source_get_uid(source.get()) << "\n" << e_source_get_display_name(source.get()) << "\n";
    return 0;
}

int add(const Session& session, EClient* client, const std::string& text) {
    const Ref<ICalComponent> file(i_cal_parser_parse_string(text.c_str()));
    if (!file) return fail("The item cannot be read", nullptr);
    GError* error = nullptr;
    ECalClient* const calendar = E_CAL_CLIENT(client);
    // The item's own zone rules first: the backend refuses local times of a zone that it does not know.
    for (ICalComponent* zone = i_cal_component_get_first_component(file.get(), I_CAL_VTIMEZONE_COMPONENT); zone;
         zone = i_cal_component_get_next_component(file.get(), I_CAL_VTIMEZONE_COMPONENT)) {
        const Ref<ICalTimezone> known(i_cal_timezone_new());
        if (i_cal_timezone_set_component(known.get(), i_cal_component_clone(zone))
            && !e_cal_client_add_timezone_sync(calendar, known.get(), nullptr, &error)) {
            g_object_unref(zone);
            return fail("The time zone cannot be saved", error);
        }
        g_object_unref(zone);
    }
    const auto kind = session.isReminder ? I_CAL_VTODO_COMPONENT : I_CAL_VEVENT_COMPONENT;
    const Ref<ICalComponent> inner(i_cal_component_get_first_component(file.get(), kind));
    if (!inner) return fail("The item is of another kind", nullptr);
    const Ref<ICalComponent> item(i_cal_component_clone(inner.get()));
    gchar* uid = nullptr;
    if (!e_cal_client_create_object_sync(calendar, item.get(), E_CAL_OPERATION_FLAG_NONE, &uid, nullptr, &error)) {
        if (!g_error_matches(error, E_CAL_CLIENT_ERROR, E_CAL_CLIENT_ERROR_OBJECT_ID_ALREADY_EXISTS))
            return fail("The item cannot be saved", error);
        // Whoever asked was cut off before it got the answer.
        g_error_free(error);
        uid = g_strdup(i_cal_component_get_uid(item.get()));
    }
    std::cout << (uid ? uid : "") << "\n";
    g_free(uid);
    return 0;
}

int remove(EClient* client, const char* uid) {
    GError* error = nullptr;
    if (e_cal_client_remove_object_sync(E_CAL_CLIENT(client), uid, nullptr, E_CAL_OBJ_MOD_ALL,
                                        E_CAL_OPERATION_FLAG_NONE, nullptr, &error))
        return 0;
    if (!g_error_matches(error, E_CAL_CLIENT_ERROR, E_CAL_CLIENT_ERROR_OBJECT_NOT_FOUND))
        return fail("The item cannot be removed", error);
    g_error_free(error);
    return missing;
}

int show(EClient* client, const char* uid) {
    GError* error = nullptr;
    ICalComponent* item = nullptr;
    if (!e_cal_client_get_object_sync(E_CAL_CLIENT(client), uid, nullptr, &item, nullptr, &error))
        return fail("The item cannot be read", error);
    gchar* text = e_cal_client_get_component_as_string(E_CAL_CLIENT(client), item);
    std::cout << (text ? text : "");
    g_free(text);
    g_object_unref(item);
    return 0;
}
} // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 1 ? argv[1] : "";
    const std::string entity = argc > 2 ? argv[2] : "";
    const bool known = (verb == "default" && argc == 3) || (verb == "add" && argc == 4)
                       || ((verb == "remove" || verb == "show") && argc == 5);
    if (!known || (entity != "reminder" && entity != "event")) {
        std::cerr << "usage: snipwren-eds default|add|remove|show reminder|event [LIST [ITEM]]\n";
        return wrongUsage;
    }
    GError* error = nullptr;
    Session session;
    session.isReminder = entity == "reminder";
    session.registry.reset(e_source_registry_new_sync(nullptr, &error));
    if (!session.registry) return fail("The calendar service cannot be reached", error);
    if (verb == "default") return showDefault(session);
    const Ref<ESource> source(e_source_registry_ref_source(session.registry.get(), argv[3]));
    if (!source) return fail("There is no such list any more", nullptr);
    const auto client = session.connect(source.get(), &error);
    if (!client) return fail("The list cannot be opened", error);
    if (verb == "remove") return remove(client.get(), argv[4]);
    if (verb == "show") return show(client.get(), argv[4]);
    const std::string text{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    return add(session, client.get(), text);
}
