#pragma once

#include "base/SerialQueue.h"
#include "platform/AlertPresenter.h"
#include "platform/CaptureOverlay.h"
#include "platform/EventStore.h"
#include "platform/FocusedField.h"
#include "platform/HeadsUpPanel.h"
#include "platform/KeyboardTap.h"
#include "platform/Pasteboard.h"
#include "platform/UserNotificationCenter.h"
#include "platform/Workspace.h"
#include "records/CaptureLanding.h"

namespace snipwren {
/// What a host brings: one implementation of each interface, all of which outlive the application.
struct Host {
    KeyboardTapProvider& taps;
    Permissions& permissions;
    Workspace& workspace;
    FocusedField& fields;
    SyntheticKeyboard& keyboard;
    const ScreenGeometry& screens;
    CaptureOverlay& overlay;
    OwnWindowKeyboardGuard& ownWindows;
    Pasteboard& pasteboard;
    AlertPresenter& alerts;
    HeadsUpPanel& headsUp;
    UserNotificationCenter& notificationCenter;
    EventStore& eventStore;
    CaptureLanding& landing;
    /// The toolkit's loop, or the environment's own main queue.
    SerialQueue& mainQueue;
};
} // namespace snipwren
