#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "hosts/linux/ActiveWindowSource.h"
#include "hosts/linux/accessibility/AtSpiBus.h"

namespace snipwren {
/// What was read of a field when it got the keyboard, so that the road of a capture need not ask again.
struct AtSpiField {
    AtSpiReference object;
    /// Its top-level window, invalid when not known.
    AtSpiReference window;
    int processId = 0;
    unsigned role = 0;
    bool hasText = false;
    bool hasEditableText = false;
    FieldDescription description;
};

/// Follows the focus from the bus's events: which object has the keyboard, what it is, and when it is gone. Programs lie
/// in different ways (no event on first activation, no end of focus), so the active window has the last word. Worker
/// thread only; work that asks programs is done in small steps between jobs.
class AtSpiFocusTracker {
public:
    using Changed = std::function<void(const std::shared_ptr<const AtSpiField>& field)>;
    static constexpr std::chrono::milliseconds walkDelay{60};
    static constexpr std::chrono::milliseconds retryDelay{120};
    static constexpr std::chrono::milliseconds doubtDelay{150};
    static constexpr int maxTries = 4;
    static constexpr int maxWalkedObjects = 3000;
    static constexpr std::chrono::milliseconds jobBudget{40};

    AtSpiFocusTracker(AtSpiBus& bus, ActiveWindowSource& windows) : bus_(bus), windows_(windows) {}

    void setChanged(Changed changed) { changed_ = std::move(changed); }
    /// The bus is open (again): looks for the field that has the keyboard now.
    void connected();
    void disconnected();
    void handle(const AtSpiEvent& event);
    /// When step() has work; none when only an event can bring some.
    std::optional<SteadyPoint> nextStep() const;
    /// Asks at most a few questions.
    void step();
    /// The field that has the keyboard, checked against the active window. Null when none is known.
    std::shared_ptr<const AtSpiField> current();
    /// Where the caret last moved: in a composed document this is the paragraph inside of the focused object.
    const AtSpiReference& lastCaretObject() const { return lastCaretObject_; }

private:
    void focus(const AtSpiReference& object);
    void doubtFocus();
    void settleDoubt();
    void loseFocus();
    void describe();
    std::optional<AtSpiField> read(const AtSpiReference& object);
    void scheduleWalk(std::chrono::milliseconds delay);
    void walkStep();
    void beginWalk();
    void finishWalk();

    AtSpiBus& bus_;
    ActiveWindowSource& windows_;
    Changed changed_;
    AtSpiReference focused_;
    AtSpiReference window_;
    AtSpiReference lastCaretObject_;
    /// Null until the focused object is described.
    std::shared_ptr<const AtSpiField> field_;
    std::optional<SteadyPoint> describeAt_;
    int describeTries_ = 0;
    /// When a loss of the focus that was told is believed.
    std::optional<SteadyPoint> doubtUntil_;

    std::optional<SteadyPoint> walkAt_;
    int walkTries_ = 0;
    bool walking_ = false;
    int walked_ = 0;
    std::deque<AtSpiReference> toWalk_;
    AtSpiReference walkWindow_;
    AtSpiReference walkCandidate_;
};
} // namespace snipwren
