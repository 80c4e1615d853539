#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/NotificationCenter.h"
#include "capture/CaptureTargets.h"
#include "capture/CaretLocator.h"
#include "capture/HostFocus.h"
#include "capture/HostTriggerStripper.h"
#include "platform/KeyEvent.h"
#include "records/CaptureJournal.h"

namespace snipwren {
/// One way into capture mode: what was decided when it began.
struct CaptureWalk {
    CaptureTarget* target = nullptr;
    /// None when it was asked for from a menu.
    std::optional<TypedTrigger> trigger;
    /// Keys of the trigger that never reached the host: they do when the capture does not open.
    std::vector<KeptKey> withheld;
    /// Where the trigger was typed; a field is told apart by the number of the model of the text.
    std::shared_ptr<const RunningApplication> origin;
    std::uint64_t place = 0;
    /// Stands in the overlay from the beginning.
    std::string text;
    std::uint64_t generation = 0;
};

/// What a walk found: whose field it is, where the overlay opens, and what it offers.
struct CaptureOpening {
    HostCaptureContext context;
    Rect anchor;
    std::vector<CaptureJournal::Offer> offers;
};

/// Walks: asks the target whether it is ready, removes the trigger, finds the overlay's place. Blocks for other programs
/// and for the disk; runs on the transition queue.
class CaptureWalker {
public:
    struct Dependencies {
        Workspace& workspace;
        FocusedField& fields;
        SyntheticKeyboard& keyboard;
        const ScreenGeometry& screens;
        CaptureJournal& journal;
        NotificationCenter& notifications;
        const Clock& clock;
        Log& log;
        HostTriggerStripper::Pause pause;
    };
    explicit CaptureWalker(const Dependencies& dependencies);

    /// None when the target is not ready, of which the user is told.
    std::optional<CaptureOpening> walk(const CaptureWalk& walk, const HostTriggerStripper::StillThere& stillThere);
    /// Whether the window that the trigger was typed into is in front.
    bool isOriginInFront(const CaptureWalk& walk) const;

private:
    void tellMissing(const CaptureTarget& target, const std::string& missing);

    const Dependencies to_;
    HostTriggerStripper stripper_;
    CaretLocator caretLocator_;
};
} // namespace snipwren
