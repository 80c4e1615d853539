#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/Log.h"
#include "capture/HostTriggerStrip.h"
#include "platform/FocusedField.h"
#include "platform/KeyboardTap.h"
#include "platform/Workspace.h"

namespace snipwren {
/// What the trigger left in the host's document.
struct TypedTrigger {
    /// As typed: two slashes and the command word.
    std::string triggerBody;
    /// How many characters of it reached the document.
    std::size_t documentTriggerLength = 0;
    /// It certainly stands before the caret; else it is only removed from where it is seen.
    bool isCertain = true;
};

/// Takes a typed trigger out of the host's field: by an edit of the field that is read back, else by Backspaces.
/// Programs claim edits that they did not make and make edits that they did not answer, so whatever is not certain is
/// left alone: a trigger that stays is a blemish, a Backspace too many is lost text. Runs off the main queue.
class HostTriggerStripper {
public:
    static constexpr std::size_t maxBackspaces = 32;
    static constexpr std::chrono::microseconds backspacePause{2500};
    /// A program under load shows the last typed letters late: how often to look again before believing that the trigger
    /// is not there. Together an eighth of a second, which only a field without the trigger costs.
    static constexpr int lookAttempts = 40;
    /// The same for an edit that the program has answered.
    static constexpr int readAttempts = 4;
    static constexpr std::chrono::microseconds readPause{3000};

    enum class Outcome { editedField, postedBackspaces, nothingToStrip, leftAlone };
    using Pause = std::function<void(std::chrono::microseconds)>;
    /// Whether the window and field that the trigger was typed into still have the keyboard.
    using StillThere = std::function<bool()>;

    /// `workspace` tells whether an input method may have changed what was typed.
    HostTriggerStripper(SyntheticKeyboard& keyboard, const Workspace& workspace, Log& log, Pause pause)
        : keyboard_(keyboard),
          workspace_(workspace),
          log_(log),
          pause_(std::move(pause)) {}

    /// `element` may be none: the host is not accessible.
    Outcome strip(FieldElement* element, const TypedTrigger& trigger, const std::string& bundleId,
                  const StillThere& stillThere);

private:
    Outcome edit(FieldElement& element, const std::string& before, std::size_t caret, const TypedTrigger& trigger,
                 const std::string& bundleId, const StillThere& stillThere);
    /// Whether the field now holds `wanted`; looked at a few times, since programs apply edits late.
    bool showsSoon(FieldElement& element, const std::string& wanted);
    /// Stops when the keyboard has gone elsewhere: Backspaces would eat what stands there.
    Outcome postBackspaces(std::size_t count, const StillThere& stillThere);

    SyntheticKeyboard& keyboard_;
    const Workspace& workspace_;
    Log& log_;
    Pause pause_;
};
} // namespace snipwren
