#include "hosts/linux/desktop/InputMethodState.h"

#include <atomic>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include "support/PrivateBus.h"

namespace snipwren {
namespace {
/// The two frameworks as they answer on the bus, on a thread of their own.
class Frameworks {
public:
    Frameworks(std::string fcitx, std::string ibus) : fcitx_(std::move(fcitx)), ibus_(std::move(ibus)) {
        sd_bus_open_user(&bus_);
        static const sd_bus_vtable controller[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_METHOD("CurrentInputMethod", "", "s", &Frameworks::current, 0),
            SD_BUS_VTABLE_END};
        static const sd_bus_vtable engine[] = {SD_BUS_VTABLE_START(0),
                                               SD_BUS_PROPERTY("GlobalEngine", "v", &Frameworks::globalEngine, 0, 0),
                                               SD_BUS_VTABLE_END};
        sd_bus_add_object_vtable(bus_, nullptr, "/controller", "org.fcitx.Fcitx.Controller1", controller, this);
        sd_bus_add_object_vtable(bus_, nullptr, "/org/freedesktop/IBus", "org.freedesktop.IBus", engine, this);
        if (!fcitx_.empty()) sd_bus_request_name(bus_, "org.fcitx.Fcitx5", 0);
        if (!ibus_.empty()) sd_bus_request_name(bus_, "org.freedesktop.IBus", 0);
        thread_ = std::thread([this] {
            while (!ends_) {
                while (sd_bus_process(bus_, nullptr) > 0) continue;
                sd_bus_wait(bus_, 2000);
            }
        });
    }
    ~Frameworks() {
        ends_ = true;
        thread_.join();
        sd_bus_close_unref(bus_);
    }

private:
    static int current(sd_bus_message* call, void* self, sd_bus_error*) {
        return sd_bus_reply_method_return(call, "s", static_cast<Frameworks*>(self)->fcitx_.c_str());
    }
    /// As that framework describes an engine: a variant with its class, its attachments, its name and what follows.
    static int globalEngine(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void* self,
                            sd_bus_error*) {
        sd_bus_message_open_container(reply, 'v', "(sa{sv}ss)");
        sd_bus_message_open_container(reply, 'r', "sa{sv}ss");
        sd_bus_message_append(reply, "s", "IBusEngineDesc");
        sd_bus_message_open_container(reply, 'a', "{sv}");
        sd_bus_message_close_container(reply);
        sd_bus_message_append(reply, "ss", static_cast<Frameworks*>(self)->ibus_.c_str(), "A long name");
        sd_bus_message_close_container(reply);
        return sd_bus_message_close_container(reply);
    }

    const std::string fcitx_, ibus_;
    sd_bus* bus_ = nullptr;
    std::atomic<bool> ends_ = false;
    std::thread thread_;
};

TEST(InputMethodState, TellsMethodsFromKeyboardLayouts) {
    const PrivateBus bus;
    const TemporaryFolder folder;
    const std::string file = folder.file("ibus");
    std::ofstream(file) << "# a comment\nIBUS_ADDRESS=" << std::getenv("DBUS_SESSION_BUS_ADDRESS")
                        << "\nIBUS_DAEMON_PID=1\n";
    const struct {
        const char* fcitx;
        const char* ibus;
        bool mayEdit;
    } cases[] = {{"", "", false},         {"keyboard-us", "", false},
                 {"pinyin", "", true},    {"", "xkb:us::eng", false},
                 {"", "libpinyin", true}, {"keyboard-us", "hangul", true}};
    for (const auto& row : cases) {
        const Frameworks frameworks(row.fcitx, row.ibus);
        EXPECT_EQ(InputMethodState(file).mayEdit(), row.mayEdit) << row.fcitx << " " << row.ibus;
    }
    EXPECT_FALSE(InputMethodState(folder.file("missing")).mayEdit());
}
} // namespace
} // namespace snipwren
