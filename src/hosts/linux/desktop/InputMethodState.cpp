#include "hosts/linux/desktop/InputMethodState.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string_view>

#include <systemd/sd-bus.h>

namespace snipwren {
namespace {
struct BusEnd {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusEnd>;
struct MessageEnd {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageEnd>;

std::string variable(const char* name) {
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing writes the environment.
    return value ? value : "";
}

/// The answer to the call; none when there was none in time.
Message ask(sd_bus* bus, sd_bus_message* call) {
    sd_bus_message* reply = nullptr;
    sd_bus_error error{};
    sd_bus_call(bus, call, InputMethodState::patience, &error, &reply);
    sd_bus_error_free(&error);
    return Message(reply);
}

Message newCall(sd_bus* bus, const char* service, const char* path, const char* interface, const char* member) {
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(bus, &call, service, path, interface, member);
    // Nobody is started by being asked.
    if (call) sd_bus_message_set_auto_start(call, 0);
    return Message(call);
}

/// ~/.config/ibus/bus/MACHINE-unix-DISPLAY, the display without its host and screen.
std::string ibusFileOfThisSession() {
    std::string machine;
    std::ifstream("/etc/machine-id") >> machine;
    std::string display = variable("DISPLAY");
    display.erase(0, display.find(':') == std::string::npos ? 0 : display.find(':') + 1);
    display.resize(std::min(display.size(), display.find('.')));
    const std::string config = variable("XDG_CONFIG_HOME");
    return (config.empty() ? variable("HOME") + "/.config" : config) + "/ibus/bus/" + machine + "-unix-" + display;
}
} // namespace

InputMethodState::InputMethodState(std::string ibusAddressFile)
    : ibusAddressFile_(ibusAddressFile.empty() ? ibusFileOfThisSession() : std::move(ibusAddressFile)) {}

bool InputMethodState::mayEdit() const { return fcitxMayEdit() || ibusMayEdit(); }

bool InputMethodState::fcitxMayEdit() const {
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) return false;
    const Bus bus(opened);
    const Message call =
        newCall(bus.get(), "org.fcitx.Fcitx5", "/controller", "org.fcitx.Fcitx.Controller1", "CurrentInputMethod");
    const Message reply = call ? ask(bus.get(), call.get()) : nullptr;
    const char* name = nullptr;
    if (!reply || sd_bus_message_read(reply.get(), "s", &name) < 0) return false;
    const std::string_view method = name;
    return !method.empty() && !method.starts_with("keyboard-");
}

bool InputMethodState::ibusMayEdit() const {
    std::ifstream file(ibusAddressFile_);
    std::string address;
    constexpr std::string_view key = "IBUS_ADDRESS=";
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(key)) address = line.substr(key.size());
    sd_bus* made = nullptr;
    if (address.empty() || sd_bus_new(&made) < 0) return false;
    const Bus bus(made);
    if (sd_bus_set_address(bus.get(), address.c_str()) < 0 || sd_bus_set_bus_client(bus.get(), 1) < 0
        || sd_bus_start(bus.get()) < 0)
        return false;
    const Message call =
        newCall(bus.get(), "org.freedesktop.IBus", "/org/freedesktop/IBus", "org.freedesktop.DBus.Properties", "Get");
    if (!call || sd_bus_message_append(call.get(), "ss", "org.freedesktop.IBus", "GlobalEngine") < 0) return false;
    const Message reply = ask(bus.get(), call.get());
    if (!reply) return false;
    // A description of the engine in a variant, twice wrapped: its class, its attachments, and then its name.
    const char *className = nullptr, *name = nullptr;
    sd_bus_message* const answer = reply.get();
    const bool isRead = sd_bus_message_enter_container(answer, 'v', nullptr) >= 0
                        && (sd_bus_message_enter_container(answer, 'v', nullptr) >= 0 || true)
                        && sd_bus_message_enter_container(answer, 'r', nullptr) >= 0
                        && sd_bus_message_read(answer, "s", &className) >= 0
                        && sd_bus_message_skip(answer, "a{sv}") >= 0 && sd_bus_message_read(answer, "s", &name) >= 0;
    return isRead && !std::string_view(name).starts_with("xkb:");
}
} // namespace snipwren
