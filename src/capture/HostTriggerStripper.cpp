#include "capture/HostTriggerStripper.h"

#include <algorithm>

#include "platform/KeyEvent.h"

namespace snipwren {
HostTriggerStripper::Outcome HostTriggerStripper::strip(FieldElement* element, const TypedTrigger& trigger,
                                                        const std::string& bundleId, const StillThere& stillThere) {
    // A Space that reached the document too may show later than the word; without it, it would stay behind.
    TypedTrigger whole = trigger;
    if (trigger.documentTriggerLength > codePointCount(trigger.triggerBody)) whole.triggerBody += ' ';
    for (int attempt = 1; element; ++attempt) {
        if (!stillThere()) return Outcome::leftAlone;
        const auto value = element->value();
        const auto selection = element->selectedRange();
        if (!value || !selection) break;
        const TypedTrigger& wanted = attempt < lookAttempts ? whole : trigger;
        const auto match = HostTriggerStrip::matchedTrigger(*value, wanted.triggerBody, selection->start);
        // One at the end of the text may be another than the one that was typed, as long as that does not show.
        const bool isAtCaret =
            match && match->range.start + match->range.length == std::min(selection->start, utf16Length(*value));
        if (isAtCaret || (match && attempt == lookAttempts))
            return edit(*element, *value, selection->start, wanted, bundleId, stillThere);
        // Readable, and no trigger in it: Backspaces would eat something else.
        if (attempt == lookAttempts) return Outcome::nothingToStrip;
        pause_(readPause);
    }
    // The field shows nothing, and what was typed may not be before the caret any more.
    if (!trigger.isCertain || workspace_.mayInputMethodEdit()) return Outcome::leftAlone;
    return postBackspaces(trigger.documentTriggerLength, stillThere);
}

HostTriggerStripper::Outcome HostTriggerStripper::edit(FieldElement& element, const std::string& before,
                                                       std::size_t caret, const TypedTrigger& trigger,
                                                       const std::string& bundleId, const StillThere& stillThere) {
    const auto plan = HostTriggerStrip::plan(before, trigger.triggerBody, caret, bundleId);
    const auto match = HostTriggerStrip::matchedTrigger(before, trigger.triggerBody, caret);
    const auto wanted = HostTriggerStrip::strippedValue(before, trigger.triggerBody, caret);
    if (!plan.primary.deleteRange || !match || !wanted) return Outcome::nothingToStrip;

    const auto attempt = [&](EditOutcome outcome) -> std::optional<Outcome> {
        if (outcome == EditOutcome::refused) return std::nullopt;
        if (showsSoon(element, *wanted)) {
            log_.line("CaptureRouter: Stripped trigger via AX ('" + match->text + "')");
            return Outcome::editedField;
        }
        // Unanswered: the request may still be carried out, and a second removal would take the user's own text.
        if (outcome == EditOutcome::unknown) return Outcome::leftAlone;
        // Claimed and not done: whatever else the field shows now, only an unchanged one is safe to go on with.
        const auto now = element.value();
        return now && *now == before ? std::nullopt : std::optional(Outcome::leftAlone);
    };
    if (auto done = attempt(element.replaceRange(*plan.primary.deleteRange, ""))) return *done;
    if (plan.allowWholeValueFallback)
        if (auto done = attempt(element.setValue(*wanted))) return *done;
    // Backspaces take what stands before the caret; a trigger found elsewhere is not theirs to remove.
    if (match->range.start + match->range.length != std::min(caret, utf16Length(before))) return Outcome::leftAlone;
    return postBackspaces(trigger.documentTriggerLength, stillThere);
}

bool HostTriggerStripper::showsSoon(FieldElement& element, const std::string& wanted) {
    for (int attempt = 1;; ++attempt) {
        const auto value = element.value();
        if (value && *value == wanted) return true;
        if (!value || attempt == readAttempts) return false;
        pause_(readPause);
    }
}

HostTriggerStripper::Outcome HostTriggerStripper::postBackspaces(std::size_t length, const StillThere& stillThere) {
    const std::size_t count = std::min(length, maxBackspaces);
    log_.line("CaptureRouter: AX strip unavailable — posting " + std::to_string(count) + " backspaces");
    for (std::size_t i = 0; i < count; ++i) {
        if (!stillThere()) return Outcome::leftAlone;
        if (!keyboard_.pressKey(keycode::deleteKey, {})) break;
        pause_(backspacePause);
    }
    return Outcome::postedBackspaces;
}
} // namespace snipwren
