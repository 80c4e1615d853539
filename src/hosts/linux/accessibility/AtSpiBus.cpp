#include "hosts/linux/accessibility/AtSpiBus.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fmt/format.h>
#include <systemd/sd-bus.h>

namespace snipwren {
namespace {
using Steady = std::chrono::steady_clock;
constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr const char* textInterface = "org.a11y.atspi.Text";
constexpr const char* editableText = "org.a11y.atspi.EditableText";
constexpr const char* component = "org.a11y.atspi.Component";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr std::uint64_t setupTimeout = 2'000'000; // Microseconds; starting the bus takes longer than a call.

const AtSpiReference registry{"org.a11y.atspi.Registry", "/org/a11y/atspi/registry"};

std::string failure(const char* what, int code) { return fmt::format("{}: {}.", what, std::strerror(-code)); }

struct SessionBus {
    sd_bus* bus = nullptr;
    ~SessionBus() { sd_bus_flush_close_unref(bus); }
};

/// The address of the accessibility bus; as a side effect programs that wait for a reader become accessible.
Result<std::string, std::string> accessibilityAddress() {
    SessionBus session;
    if (const int code = sd_bus_open_user(&session.bus); code < 0)
        return unexpected(failure("The session bus cannot be reached", code));
    sd_bus_set_method_call_timeout(session.bus, setupTimeout);
    sd_bus_message* answer = nullptr;
    const int code = sd_bus_call_method(session.bus, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress",
                                        nullptr, &answer, "");
    const char* address = nullptr;
    std::string found;
    if (code >= 0 && sd_bus_message_read(answer, "s", &address) > 0) found = address;
    sd_bus_message_unref(answer);
    if (found.empty()) return unexpected(failure("The accessibility bus cannot be found", code < 0 ? code : -ENOENT));
    // Qt and browsers publish nothing until somebody says that it is wanted.
    sd_bus_set_property(session.bus, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Status", "IsEnabled", nullptr, "b", 1);
    return found;
}
} // namespace

void AtSpiBus::MessageFree::operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }

AtSpiBus::~AtSpiBus() { close(); }

void AtSpiBus::close() {
    bus_ = sd_bus_close_unref(bus_);
    processIds_.clear();
    received_.clear();
}

std::optional<std::string> AtSpiBus::open() {
    close();
    const auto address = accessibilityAddress();
    if (!address) return address.error();
    int code = sd_bus_new(&bus_);
    if (code >= 0) code = sd_bus_set_address(bus_, address->c_str());
    if (code >= 0) code = sd_bus_set_bus_client(bus_, 1);
    if (code >= 0) code = sd_bus_start(bus_);
    if (code < 0) {
        close();
        return failure("The accessibility bus cannot be reached", code);
    }
    sd_bus_set_method_call_timeout(bus_, setupTimeout);
    const auto match = [&](const std::string& rule) {
        if (code >= 0)
            code = sd_bus_add_match(
                bus_, nullptr, ("type='signal'," + rule).c_str(),
                [](sd_bus_message* message, void* self, sd_bus_error*) {
                    static_cast<AtSpiBus*>(self)->receive(message);
                    return 0;
                },
                this);
    };
    match("interface='org.a11y.atspi.Event.Object',member='StateChanged',arg0='focused'");
    match("interface='org.a11y.atspi.Event.Object',member='TextCaretMoved'");
    // GTK 4 writes its window events in lower case.
    for (const char* member : {"Activate", "Deactivate", "activate", "deactivate"})
        match(fmt::format("interface='org.a11y.atspi.Event.Window',member='{}'", member));
    for (const char* event :
         {"object:state-changed:focused", "object:text-caret-moved", "window:activate", "window:deactivate"}) {
        if (code < 0) break;
        code = sd_bus_call_method(bus_, registry.bus.c_str(), registry.path.c_str(), "org.a11y.atspi.Registry",
                                  "RegisterEvent", nullptr, nullptr, "sass", event, 0, "");
    }
    if (code < 0) {
        close();
        return failure("Focus events are not available", code);
    }
    return std::nullopt;
}

int AtSpiBus::fileDescriptor() const { return bus_ ? sd_bus_get_fd(bus_) : -1; }

short AtSpiBus::pollEvents() const {
    return bus_ ? static_cast<short>(std::max(0, sd_bus_get_events(bus_))) : short{0};
}

bool AtSpiBus::process(std::vector<AtSpiEvent>& events) {
    if (!bus_) return false;
    int code = 1;
    while (code > 0) code = sd_bus_process(bus_, nullptr);
    if (code >= 0) code = sd_bus_flush(bus_);
    events.insert(events.end(), received_.begin(), received_.end());
    received_.clear();
    return code >= 0 && sd_bus_is_open(bus_) > 0;
}

void AtSpiBus::receive(sd_bus_message* message) {
    const char* detail = nullptr;
    int value = 0;
    int second = 0;
    const char* const member = sd_bus_message_get_member(message);
    const char* const sender = sd_bus_message_get_sender(message);
    const char* const path = sd_bus_message_get_path(message);
    if (!member || !sender || !path || sd_bus_message_read(message, "sii", &detail, &value, &second) <= 0) return;
    AtSpiEvent event{member, detail, value, {sender, path}};
    if (event.member[0] >= 'a') event.member[0] = static_cast<char>(event.member[0] - 'a' + 'A');
    received_.push_back(std::move(event));
}

void AtSpiBus::beginJob(std::chrono::milliseconds budget) {
    deadline_ = Steady::now() + budget;
    timedOut_ = false;
}

AtSpiBus::Message AtSpiBus::newCall(const AtSpiReference& object, const char* interface, const char* member) {
    sd_bus_message* call = nullptr;
    if (!bus_
        || sd_bus_message_new_method_call(bus_, &call, object.bus.c_str(), object.path.c_str(), interface, member) < 0)
        return {};
    sd_bus_message_set_auto_start(call, 0);
    return Message(call);
}

AtSpiBus::Sent AtSpiBus::send(Message call, Message& answer) {
    if (!call || !bus_ || timedOut_) return Sent::notSent;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - Steady::now()).count();
    if (left < 1000) {
        timedOut_ = true;
        return Sent::notSent;
    }
    const auto limit = std::min<std::int64_t>(left, std::chrono::microseconds(callTimeout).count());
    sd_bus_error error = {}; // SD_BUS_ERROR_NULL is C only.
    sd_bus_message* reply = nullptr;
    const int code = sd_bus_call(bus_, call.get(), static_cast<std::uint64_t>(limit), &error, &reply);
    answer.reset(reply);
    // The program went away with the request in its hands, or the bus lost it.
    const bool lost = sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY) != 0
                      || sd_bus_error_has_name(&error, SD_BUS_ERROR_TIMEOUT) != 0;
    const bool replied = sd_bus_error_is_set(&error) != 0 && code != -ETIMEDOUT && !lost;
    sd_bus_error_free(&error);
    if (code >= 0) return Sent::answered;
    if (code == -ETIMEDOUT) timedOut_ = true;
    return replied ? Sent::failed : Sent::unanswered;
}

AtSpiBus::Message AtSpiBus::ask(Message call) {
    Message answer;
    if (send(std::move(call), answer) != Sent::answered) return {};
    return answer;
}

AtSpiBus::Message AtSpiBus::property(const AtSpiReference& object, const char* interface, const char* name,
                                     const char* signature) {
    Message call = newCall(object, properties, "Get");
    if (call) sd_bus_message_append(call.get(), "ss", interface, name);
    Message answer = ask(std::move(call));
    if (!answer || sd_bus_message_enter_container(answer.get(), 'v', signature) <= 0) return {};
    return answer;
}

std::optional<std::string> AtSpiBus::textProperty(const AtSpiReference& object, const char* interface,
                                                  const char* name) {
    const Message answer = property(object, interface, name, "s");
    const char* value = nullptr;
    if (!answer || sd_bus_message_read(answer.get(), "s", &value) <= 0) return std::nullopt;
    return std::string(value);
}

EditOutcome AtSpiBus::edit(Message call) {
    Message answer;
    switch (send(std::move(call), answer)) {
    case Sent::notSent:
    case Sent::failed: return EditOutcome::refused;
    case Sent::unanswered: return EditOutcome::unknown;
    case Sent::answered: break;
    }
    int done = 0;
    if (sd_bus_message_read(answer.get(), "b", &done) <= 0) return EditOutcome::refused;
    return done != 0 ? EditOutcome::applied : EditOutcome::refused;
}

std::optional<unsigned> AtSpiBus::role(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, accessible, "GetRole"));
    std::uint32_t value = 0;
    if (!answer || sd_bus_message_read(answer.get(), "u", &value) <= 0) return std::nullopt;
    return value;
}

std::optional<std::uint64_t> AtSpiBus::states(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, accessible, "GetState"));
    if (!answer || sd_bus_message_enter_container(answer.get(), 'a', "u") <= 0) return std::nullopt;
    std::uint64_t states = 0;
    std::uint32_t word = 0;
    for (int i = 0; i < 2 && sd_bus_message_read(answer.get(), "u", &word) > 0; ++i)
        states |= std::uint64_t{word} << (32 * i);
    return states;
}

std::optional<std::vector<std::string>> AtSpiBus::interfaces(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, accessible, "GetInterfaces"));
    if (!answer || sd_bus_message_enter_container(answer.get(), 'a', "s") <= 0) return std::nullopt;
    std::vector<std::string> list;
    const char* item = nullptr;
    while (list.size() < maxListLength && sd_bus_message_read(answer.get(), "s", &item) > 0) list.emplace_back(item);
    return list;
}

std::optional<std::map<std::string, std::string>> AtSpiBus::attributes(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, accessible, "GetAttributes"));
    if (!answer || sd_bus_message_enter_container(answer.get(), 'a', "{ss}") <= 0) return std::nullopt;
    std::map<std::string, std::string> list;
    const char* key = nullptr;
    const char* value = nullptr;
    while (list.size() < maxListLength && sd_bus_message_read(answer.get(), "{ss}", &key, &value) > 0)
        list.emplace(key, value);
    return list;
}

std::optional<std::vector<AtSpiReference>> AtSpiBus::children(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, accessible, "GetChildren"));
    if (!answer || sd_bus_message_enter_container(answer.get(), 'a', "(so)") <= 0) return std::nullopt;
    std::vector<AtSpiReference> list;
    const char* name = nullptr;
    const char* path = nullptr;
    while (list.size() < maxListLength && sd_bus_message_read(answer.get(), "(so)", &name, &path) > 0)
        list.push_back({name, path});
    return list;
}

std::optional<std::string> AtSpiBus::name(const AtSpiReference& object) {
    return textProperty(object, accessible, "Name");
}

std::optional<std::string> AtSpiBus::description(const AtSpiReference& object) {
    return textProperty(object, accessible, "Description");
}

std::optional<std::string> AtSpiBus::accessibleId(const AtSpiReference& object) {
    return textProperty(object, accessible, "AccessibleId");
}

std::optional<std::string> AtSpiBus::toolkitName(const std::string& bus) {
    return textProperty({bus, "/org/a11y/atspi/accessible/root"}, "org.a11y.atspi.Application", "ToolkitName");
}

int AtSpiBus::processId(const std::string& bus) {
    if (const auto known = processIds_.find(bus); known != processIds_.end()) return known->second;
    Message call = newCall({"org.freedesktop.DBus", "/org/freedesktop/DBus"}, "org.freedesktop.DBus",
                           "GetConnectionUnixProcessID");
    if (call) sd_bus_message_append(call.get(), "s", bus.c_str());
    const Message answer = ask(std::move(call));
    std::uint32_t process = 0;
    if (!answer || sd_bus_message_read(answer.get(), "u", &process) <= 0) return 0;
    // Connection names are never used again, so the memory only has to be kept from growing.
    if (processIds_.size() >= maxListLength) processIds_.clear();
    return processIds_[bus] = static_cast<int>(process);
}

std::vector<AtSpiReference> AtSpiBus::applications() {
    return children({registry.bus, "/org/a11y/atspi/accessible/root"}).value_or(std::vector<AtSpiReference>{});
}

std::optional<int> AtSpiBus::characterCount(const AtSpiReference& object) {
    const Message answer = property(object, textInterface, "CharacterCount", "i");
    int value = -1;
    if (!answer || sd_bus_message_read(answer.get(), "i", &value) <= 0 || value < 0) return std::nullopt;
    return value;
}

std::optional<int> AtSpiBus::caretOffset(const AtSpiReference& object) {
    const Message answer = property(object, textInterface, "CaretOffset", "i");
    int value = -1;
    if (!answer || sd_bus_message_read(answer.get(), "i", &value) <= 0 || value < 0) return std::nullopt;
    return value;
}

std::optional<std::string> AtSpiBus::text(const AtSpiReference& object, int start, int end) {
    Message call = newCall(object, textInterface, "GetText");
    if (call) sd_bus_message_append(call.get(), "ii", start, end);
    const Message answer = ask(std::move(call));
    const char* value = nullptr;
    if (!answer || sd_bus_message_read(answer.get(), "s", &value) <= 0) return std::nullopt;
    return std::string(value);
}

std::optional<int> AtSpiBus::selectionCount(const AtSpiReference& object) {
    const Message answer = ask(newCall(object, textInterface, "GetNSelections"));
    int value = 0;
    if (!answer || sd_bus_message_read(answer.get(), "i", &value) <= 0) return std::nullopt;
    return value;
}

std::optional<std::pair<int, int>> AtSpiBus::selection(const AtSpiReference& object, int number) {
    Message call = newCall(object, textInterface, "GetSelection");
    if (call) sd_bus_message_append(call.get(), "i", number);
    const Message answer = ask(std::move(call));
    int start = 0;
    int end = 0;
    if (!answer || sd_bus_message_read(answer.get(), "ii", &start, &end) <= 0) return std::nullopt;
    return std::pair(start, end);
}

std::optional<AtSpiRect> AtSpiBus::extents(const AtSpiReference& object, AtSpiCoordinates coordinates) {
    Message call = newCall(object, component, "GetExtents");
    if (call) sd_bus_message_append(call.get(), "u", static_cast<unsigned>(coordinates));
    const Message answer = ask(std::move(call));
    AtSpiRect rect;
    if (!answer || sd_bus_message_read(answer.get(), "(iiii)", &rect.x, &rect.y, &rect.width, &rect.height) <= 0)
        return std::nullopt;
    return rect;
}

std::optional<AtSpiRect> AtSpiBus::characterExtents(const AtSpiReference& object, int offset,
                                                    AtSpiCoordinates coordinates) {
    Message call = newCall(object, textInterface, "GetCharacterExtents");
    if (call) sd_bus_message_append(call.get(), "iu", offset, static_cast<unsigned>(coordinates));
    const Message answer = ask(std::move(call));
    AtSpiRect rect;
    if (!answer || sd_bus_message_read(answer.get(), "iiii", &rect.x, &rect.y, &rect.width, &rect.height) <= 0)
        return std::nullopt;
    return rect;
}

std::optional<AtSpiRect> AtSpiBus::rangeExtents(const AtSpiReference& object, int start, int end,
                                                AtSpiCoordinates coordinates) {
    Message call = newCall(object, textInterface, "GetRangeExtents");
    if (call) sd_bus_message_append(call.get(), "iiu", start, end, static_cast<unsigned>(coordinates));
    const Message answer = ask(std::move(call));
    AtSpiRect rect;
    if (!answer || sd_bus_message_read(answer.get(), "iiii", &rect.x, &rect.y, &rect.width, &rect.height) <= 0)
        return std::nullopt;
    return rect;
}

EditOutcome AtSpiBus::deleteText(const AtSpiReference& object, int start, int end) {
    Message call = newCall(object, editableText, "DeleteText");
    if (call) sd_bus_message_append(call.get(), "ii", start, end);
    return edit(std::move(call));
}

EditOutcome AtSpiBus::insertText(const AtSpiReference& object, int position, const std::string& text, int length) {
    Message call = newCall(object, editableText, "InsertText");
    if (call && sd_bus_message_append(call.get(), "isi", position, text.c_str(), length) < 0)
        return EditOutcome::refused;
    return edit(std::move(call));
}

EditOutcome AtSpiBus::setTextContents(const AtSpiReference& object, const std::string& text) {
    Message call = newCall(object, editableText, "SetTextContents");
    if (call && sd_bus_message_append(call.get(), "s", text.c_str()) < 0) return EditOutcome::refused;
    return edit(std::move(call));
}
} // namespace snipwren
