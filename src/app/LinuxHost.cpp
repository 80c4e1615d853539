#include "app/LinuxHost.h"

#include "app/SystemServices.h"
#include "hosts/linux/SecureInputState.h"
#include "hosts/linux/accessibility/AtSpiFocusedField.h"
#include "hosts/linux/desktop/DesktopSession.h"
#include "hosts/linux/desktop/InputMethodState.h"
#include "hosts/linux/x11/OwnKeys.h"
#include "hosts/linux/x11/X11ActiveWindow.h"
#include "hosts/linux/x11/X11KeyboardTap.h"
#include "hosts/linux/x11/X11ScreenGeometry.h"
#include "hosts/linux/x11/X11SyntheticKeyboard.h"
#include "hosts/linux/x11/X11Workspace.h"
#include "hosts/portable/DesktopOpener.h"

namespace snipwren {
namespace {
/// X11 asks nobody for leave to listen.
class Granted final : public Permissions {
public:
    bool isAccessibilityTrusted() const override { return true; }
};

X11KeyboardTap::Options tapOptions(const LinuxHost::Options& options) {
    X11KeyboardTap::Options made;
    made.grabEverySlash = options.grabEverySlash;
    made.guardProgram = options.guardProgram;
    return made;
}
} // namespace

struct LinuxHost::Parts {
    Parts(Environment& environment, const Options& options)
        : workspace(secureInput, opener,
                    {{}, options.openSettings, options.isOwnWindowKey, [this] { return inputMethod.mayEdit(); }}),
          fields(activeWindow, workspace, environment.log()),
          keyboard(ownKeys),
          taps(ownKeys, tapOptions(options)),
          services(environment) {}

    DesktopOpener opener;
    SecureInputState secureInput;
    InputMethodState inputMethod;
    OwnKeys ownKeys;
    Granted permissions;
    X11Workspace workspace;
    X11ActiveWindow activeWindow;
    AtSpiFocusedField fields;
    X11SyntheticKeyboard keyboard;
    X11ScreenGeometry screens;
    X11KeyboardTapProvider taps;
    SystemServices services;
};

LinuxHost::LinuxHost(Environment& environment, Options options)
    : parts_(std::make_unique<Parts>(environment, options)) {}

LinuxHost::~LinuxHost() = default;

Host LinuxHost::host(const Windows& windows) {
    return {.taps = parts_->taps,
            .permissions = parts_->permissions,
            .workspace = parts_->workspace,
            .fields = parts_->fields,
            .keyboard = parts_->keyboard,
            .screens = parts_->screens,
            .overlay = windows.overlay,
            .ownWindows = windows.ownWindows,
            .pasteboard = windows.pasteboard,
            .alerts = windows.alerts,
            .headsUp = windows.headsUp,
            .notificationCenter = parts_->services.notificationCenter(),
            .eventStore = parts_->services.eventStore(),
            .landing = windows.landing,
            .mainQueue = windows.mainQueue};
}

void LinuxHost::start(std::function<void()> secretBegan) {
    parts_->fields.setSecureChanged([parts = parts_.get(), secretBegan = std::move(secretBegan)](bool on) {
        parts->secureInput.set(SecureInputState::Sign::passwordField, on);
        if (on && secretBegan) secretBegan();
    });
    parts_->workspace.start();
    parts_->fields.start();
}

void LinuxHost::stop() { parts_->fields.stop(); }

bool LinuxHost::isAccessibilityConnected() const { return parts_->fields.isConnected(); }

bool LinuxHost::open(const std::string& path) { return parts_->opener.open(path); }

std::optional<std::string> LinuxHost::reasonNotToTap() { return DesktopSession::fromEnvironment().reasonNotToTap(); }

std::optional<std::string> LinuxHost::warning() { return DesktopSession::fromEnvironment().warning(); }
} // namespace snipwren
