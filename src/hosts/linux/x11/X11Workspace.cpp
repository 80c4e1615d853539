#include "hosts/linux/x11/X11Workspace.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include "hosts/linux/desktop/ApplicationIdentity.h"
#include "hosts/linux/x11/FocusWatch.h"
#include "hosts/portable/DesktopOpener.h"

namespace snipwren {
namespace {
/// Programs whose windows ask for a secret; many of them show accessibility nothing.
constexpr std::string_view secretPrompts[] = {
    "pinentry",        "gcr-prompter",  "org.gnome.keyring", "ssh-askpass",    "ksshaskpass",
    "x11-ssh-askpass", "polkit-",       "lxpolkit",          "lxqt-policykit", "lxqt-sudo",
    "kdesu",           "gksu",          "xscreensaver",      "light-locker",   "i3lock",
    "xsecurelock",     "kscreenlocker", "ksecretd",          "kwalletd",       "systemd-ask-password"};

bool asksForSecrets(const RunningApplication& application) {
    return std::any_of(application.identities.begin(), application.identities.end(), [](const std::string& name) {
        return std::any_of(std::begin(secretPrompts), std::end(secretPrompts),
                           [&name](std::string_view prompt) { return name.starts_with(prompt); });
    });
}
} // namespace

X11Workspace::X11Workspace(SecureInputState& secureInput, DesktopOpener& opener, Options options)
    : secureInput_(secureInput),
      opener_(opener),
      options_(std::move(options)) {}

X11Workspace::~X11Workspace() {
    stopping_ = true;
    if (!thread_.joinable()) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_.get(), &one, sizeof one);
    thread_.join();
}

bool X11Workspace::start() {
    wake_ = FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_) return false;
    try {
        thread_ = std::thread([this] { watch(); });
    } catch (const std::system_error&) {
        return false;
    }
    pthread_setname_np(thread_.native_handle(), "FocusWatch");
    return true;
}

void X11Workspace::watch() {
    ApplicationIdentity identities(ApplicationIdentity::defaultFolders());
    constexpr int retryMilliseconds = 2000;
    while (!stopping_) {
        const std::unique_ptr<FocusWatch> focus = FocusWatch::open(options_.display);
        std::array<pollfd, 2> wait{{{focus ? focus->descriptor() : -1, POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
        if (!focus) {
            poll(wait.data(), wait.size(), retryMilliseconds);
            continue;
        }
        bool changed = true;
        while (!stopping_ && !focus->isBroken()) {
            if (changed) {
                std::shared_ptr<RunningApplication> application;
                if (const xcb_window_t window = focus->frontmostWindow()) {
                    application = std::make_shared<RunningApplication>(identities.identify(focus->ownerOf(window)));
                    application->window = window;
                }
                secureInput_.set(SecureInputState::Sign::secretPrompt, application && asksForSecrets(*application));
                publish(std::move(application));
            }
            const auto now = std::chrono::steady_clock::now();
            const bool ours = options_.isOwnWindowKey && options_.isOwnWindowKey();
            secureInput_.set(SecureInputState::Sign::foreignGrab, focus->isGrabbed(now) && !ours);
            int patience = -1;
            if (const auto look = focus->nextLook(); look && *look > now) {
                patience =
                    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(*look - now).count()) + 1;
            }
            // The questions above may have brought events along, which nothing would wake us for.
            const bool wasGrabbed = focus->nextLook().has_value();
            changed = focus->handleEvents();
            if (changed || focus->nextLook().has_value() != wasGrabbed) continue;
            poll(wait.data(), wait.size(), patience);
            changed = focus->handleEvents();
        }
        secureInput_.set(SecureInputState::Sign::foreignGrab, false);
    }
}

void X11Workspace::publish(std::shared_ptr<const RunningApplication> application) {
    {
        const std::lock_guard lock(mutex_);
        frontmost_ = application;
    }
    if (changed_ && application) changed_(*application);
}

std::shared_ptr<const RunningApplication> X11Workspace::frontmostApplication() const {
    const std::lock_guard lock(mutex_);
    return frontmost_;
}

void X11Workspace::activate(const RunningApplication& application) {
    if (application.window == 0) return;
    const std::lock_guard lock(activationLock_);
    if (activation_ && xcb_connection_has_error(activation_.get())) activation_.reset();
    if (!activation_) activation_ = connectToDisplay(options_.display.empty() ? nullptr : options_.display.c_str());
    xcb_connection_t* const c = activation_.get();
    if (!c) return;
    constexpr std::string_view name = "_NET_ACTIVE_WINDOW";
    const XcbOwned<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, static_cast<std::uint16_t>(name.size()), name.data()), nullptr));
    const auto window = static_cast<xcb_window_t>(application.window);
    if (!atom || atom->atom == XCB_ATOM_NONE) {
        // No window manager ever ran.
        xcb_set_input_focus(c, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
        xcb_flush(c);
        return;
    }
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = atom->atom;
    message.data.data32[0] = 2; // As a pager asks: obeyed without a timestamp.
    xcb_send_event(c, 0, rootWindow(c), XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(c);
}

bool X11Workspace::open(const std::string& pathOrUrl) { return opener_.open(pathOrUrl); }

bool X11Workspace::openSettings(const std::string& section, const std::string& field) {
    return options_.showSettings && options_.showSettings(section, field);
}
} // namespace snipwren
