#include "app/DesktopDoctor.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <sdbus-c++/sdbus-c++.h>
#include <unistd.h>
#include <xcb/xtest.h>

#include "app/DesktopClient.h"
#include "hosts/linux/desktop/DesktopSession.h"
#include "hosts/linux/x11/FocusWatch.h"
#include "hosts/linux/x11/TapLink.h"
#include "hosts/linux/x11/TapSelfTest.h"

namespace snipwren {
namespace {
constexpr std::chrono::seconds busTimeout{2};

bool isOnPath(const char* program) {
    const char* const path = std::getenv("PATH");
    std::string_view rest = path ? path : "";
    while (!rest.empty()) {
        const std::size_t colon = rest.find(':');
        const std::string file = std::string(rest.substr(0, colon)) + "/" + program;
        if (access(file.c_str(), X_OK) == 0) return true;
        rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    }
    return false;
}

/// Whether somebody has the name now or would be started for it.
bool isServed(sdbus::IConnection& bus, const std::string& name) {
    const auto daemon = sdbus::createProxy(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus");
    bool owned = false;
    daemon->callMethod("NameHasOwner")
        .onInterface("org.freedesktop.DBus")
        .withTimeout(busTimeout)
        .withArguments(name)
        .storeResultsTo(owned);
    if (owned) return true;
    std::vector<std::string> startable;
    daemon->callMethod("ListActivatableNames")
        .onInterface("org.freedesktop.DBus")
        .withTimeout(busTimeout)
        .storeResultsTo(startable);
    return std::find(startable.begin(), startable.end(), name) != startable.end();
}

bool property(sdbus::IConnection& bus, const char* service, const char* path, const char* interface, const char* name) {
    const auto proxy = sdbus::createProxy(bus, service, path);
    sdbus::Variant value;
    proxy->callMethod("Get")
        .onInterface("org.freedesktop.DBus.Properties")
        .withTimeout(busTimeout)
        .withArguments(std::string(interface), std::string(name))
        .storeResultsTo(value);
    return value.get<bool>();
}
} // namespace

void DesktopDoctor::found(std::string subject, Verdict verdict, std::string sentence) {
    findings_.push_back({std::move(subject), verdict, std::move(sentence)});
}

std::vector<DesktopDoctor::Finding> DesktopDoctor::examine(bool selfTest) {
    findings_.clear();
    examineSession();
    if (canTap_) examineDisplay();
    examineBus();
    examineFiles();
    examineProgram(selfTest);
    return findings_;
}

void DesktopDoctor::examineSession() {
    const DesktopSession session = DesktopSession::fromEnvironment();
    if (const auto reason = session.reasonNotToTap()) return found("Session", Verdict::bad, *reason);
    canTap_ = true;
    const auto warning = session.warning();
    found("Session", warning ? Verdict::limited : Verdict::good, warning.value_or("This is an X11 session."));
}

void DesktopDoctor::examineDisplay() {
    const auto link = TapLink::open({});
    canTap_ = link.has_value();
    if (!link) return found("Key tap", Verdict::bad, link.error().description);
    found("Key tap", Verdict::good, "The X server shows every key and can hold single ones back.");
    xcb_connection_t* const c = (*link)->connection.get();
    const auto* const posting = xcb_get_extension_data(c, &xcb_test_id);
    if (posting && posting->present) {
        found("Posted keys", Verdict::good, "Backspaces can be posted where accessibility does not reach.");
    } else {
        found("Posted keys", Verdict::bad, "The X server has no XTEST extension. Start it without \"-tst\".");
    }
    const auto focus = FocusWatch::open({});
    const xcb_window_t front = focus ? focus->frontmostWindow() : 0;
    if (front != 0) {
        const RunningApplication application =
            ApplicationIdentity(ApplicationIdentity::defaultFolders()).identify(focus->ownerOf(front));
        found("Front window", Verdict::good, "The application in front is " + application.bundleId + ".");
    } else {
        found("Front window", Verdict::limited,
              "No window is in front, so exclusions cannot be checked. Focus a window and try again.");
    }
}

void DesktopDoctor::examineBus() {
    try {
        const auto bus = sdbus::createSessionBusConnection();
        found("Session bus", Verdict::good, "The session bus answers.");
        if (!isServed(*bus, "org.a11y.Bus")) {
            found(
                "Accessibility", Verdict::limited,
                "There is no accessibility bus: triggers are removed by Backspaces and the overlay opens at the mouse. "
                "Install at-spi2-core.");
        } else if (!property(*bus, "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Status", "IsEnabled")) {
            found("Accessibility", Verdict::limited,
                  "Accessibility is off, so some programs do not show their fields. Snipwren switches it on when it "
                  "starts; programs started before that have to be started again.");
        } else {
            found("Accessibility", Verdict::good, "Accessibility is on: fields can be read and edited.");
        }
        if (isServed(*bus, "org.freedesktop.Notifications")) {
            found("Notifications", Verdict::good, "A notification service is there for timers and alarms.");
        } else {
            found("Notifications", Verdict::limited,
                  "There is no notification service: timers and alarms show in Snipwren's own panel only. Install one, "
                  "for example dunst.");
        }
        if (isServed(*bus, "org.kde.StatusNotifierWatcher")
            && property(*bus, "org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                        "org.kde.StatusNotifierWatcher", "IsStatusNotifierHostRegistered")) {
            found("Status item", Verdict::good, "The panel shows status items.");
        } else {
            found("Status item", Verdict::limited,
                  "No panel shows status items. Start Snipwren a second time to open its menu as a window.");
        }
    } catch (const sdbus::Error& error) {
        found("Session bus", Verdict::bad,
              "The session bus does not answer (" + error.getMessage()
                  + "). Log in through your desktop, or start with "
                    "dbus-run-session.");
    }
}

void DesktopDoctor::examineFiles() {
    const std::string& support = environment_.paths().applicationSupport;
    std::error_code error;
    std::filesystem::create_directories(support, error);
    if (access(support.c_str(), W_OK | X_OK) == 0) {
        found("Files", Verdict::good, "Captures are kept in " + support + ".");
    } else {
        found("Files", Verdict::bad,
              "The folder " + support + " cannot be written. Make it yours: chown -R $USER " + support);
    }
    if (isOnPath("xdg-open")) {
        found("Opening files", Verdict::good, "xdg-open is there.");
    } else {
        found("Opening files", Verdict::limited, "xdg-open is missing, so nothing can be revealed. Install xdg-utils.");
    }
}

void DesktopDoctor::examineProgram(bool selfTest) {
    const auto status = DesktopClient::status();
    if (!status) return found("Snipwren", Verdict::bad, status.error().description);
    const bool running = status->has_value();
    found("Snipwren", running ? Verdict::good : Verdict::limited,
          running ? "Snipwren is running." : "Snipwren is not running. Try: snipwren start");
    if (!selfTest || !canTap_) return;
    if (running)
        return found("Self-test", Verdict::limited,
                     "Not run, because Snipwren holds the keys now. Try: snipwren stop, then snipwren doctor");
    const TapSelfTest::Report report = TapSelfTest::run({});
    found("Self-test", report.passed ? Verdict::good : Verdict::bad, report.sentence);
}
} // namespace snipwren
