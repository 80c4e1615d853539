#include "hosts/linux/accessibility/AtSpiFocusTracker.h"

#include <algorithm>

#include <unistd.h>

#include <fmt/format.h>

namespace snipwren {
namespace {
SteadyPoint steadyNow() { return std::chrono::steady_clock::now(); }

bool has(std::uint64_t states, AtSpiState state) { return (states >> static_cast<unsigned>(state) & 1) != 0; }

bool owns(const ActiveWindow& window, int process) {
    return process > 0
           && std::find(window.processIds.begin(), window.processIds.end(), process) != window.processIds.end();
}

/// Names by number, because the names that programs give differ between toolkits and languages.
std::string roleName(unsigned role) {
    switch (role) {
    case 8: return "check menu item";
    case 11: return "combo box";
    case 33: return "menu";
    case 34: return "menu bar";
    case 35: return "menu item";
    case 40: return "password text";
    case 41: return "popup menu";
    case 45: return "radio menu item";
    case 58: return "tearoff menu item";
    case 60: return "terminal";
    case 61: return "text";
    case 79: return "entry";
    case 85: return "section";
    case 95: return "document web";
    default: return fmt::format("role {}", role);
    }
}
} // namespace

void AtSpiFocusTracker::connected() {
    walkTries_ = 0;
    scheduleWalk(std::chrono::milliseconds(0));
}

void AtSpiFocusTracker::disconnected() {
    window_ = {};
    lastCaretObject_ = {};
    walking_ = false;
    walkAt_.reset();
    loseFocus();
}

void AtSpiFocusTracker::handle(const AtSpiEvent& event) {
    // Our overlay takes the keyboard without taking it from the field, and asking ourselves could wait for ourselves.
    bus_.beginJob(jobBudget);
    if (bus_.processId(event.source.bus) == getpid()) return;
    if (event.member == "TextCaretMoved") {
        lastCaretObject_ = event.source;
    } else if (event.member == "StateChanged") {
        if (event.value != 0)
            focus(event.source);
        else if (focused_ == event.source)
            doubtFocus();
    } else if (event.member == "Activate") {
        window_ = event.source;
        if (focused_.bus != event.source.bus) loseFocus();
        // Some programs tell of no focus when their window is activated, others do so after this event.
        walkTries_ = 0;
        scheduleWalk(walkDelay);
    } else if (event.member == "Deactivate") {
        // The new window's activation may come first, so only what belongs to this program is forgotten.
        if (focused_.bus == event.source.bus) doubtFocus();
        if (window_ == event.source) window_ = {};
    }
}

void AtSpiFocusTracker::focus(const AtSpiReference& object) {
    if (!object.isValid()) return;
    doubtUntil_.reset();
    if (object == focused_) return;
    focused_ = object;
    field_.reset();
    describeTries_ = 0;
    describeAt_ = steadyNow();
}

/// A key that somebody grabs takes the focus from its program for an instant, our own tap's keys too, and some programs
/// tell of it. Only what lasts is a loss.
void AtSpiFocusTracker::doubtFocus() {
    if (focused_.isValid() && !doubtUntil_) doubtUntil_ = steadyNow() + doubtDelay;
}

void AtSpiFocusTracker::settleDoubt() {
    doubtUntil_.reset();
    bus_.beginJob(jobBudget);
    const auto states = bus_.states(focused_);
    const auto window = windows_.activeWindow();
    const bool holds =
        states && has(*states, AtSpiState::focused) && window && owns(*window, bus_.processId(focused_.bus));
    if (!holds) loseFocus();
}

void AtSpiFocusTracker::loseFocus() {
    describeAt_.reset();
    doubtUntil_.reset();
    if (!focused_.isValid()) return;
    focused_ = {};
    const bool wasKnown = field_ != nullptr;
    field_.reset();
    if (wasKnown && changed_) changed_(nullptr);
}

std::optional<SteadyPoint> AtSpiFocusTracker::nextStep() const {
    if (walking_) return SteadyPoint{};
    std::optional<SteadyPoint> next;
    for (const auto& moment : {walkAt_, describeAt_, doubtUntil_})
        if (moment && (!next || *moment < *next)) next = moment;
    return next;
}

void AtSpiFocusTracker::step() {
    const SteadyPoint now = steadyNow();
    if (describeAt_ && *describeAt_ <= now) describe();
    if (doubtUntil_ && *doubtUntil_ <= now) settleDoubt();
    if (walking_)
        walkStep();
    else if (walkAt_ && *walkAt_ <= now)
        beginWalk();
}

void AtSpiFocusTracker::describe() {
    describeAt_.reset();
    bus_.beginJob(jobBudget);
    auto field = read(focused_);
    const auto window = windows_.activeWindow();
    // A program behind the active one moves its own focus about; and an activation may come after the focus.
    if (!field || !window || !owns(*window, field->processId)) {
        if (++describeTries_ < maxTries) {
            describeAt_ = steadyNow() + retryDelay;
        } else {
            focused_ = {};
            scheduleWalk(retryDelay);
        }
        return;
    }
    field->description.windowTitle = window->title;
    field_ = std::make_shared<const AtSpiField>(std::move(*field));
    if (changed_) changed_(field_);
}

std::optional<AtSpiField> AtSpiFocusTracker::read(const AtSpiReference& object) {
    AtSpiField field;
    field.object = object;
    if (window_.bus == object.bus) field.window = window_;
    field.processId = bus_.processId(object.bus);
    const auto role = bus_.role(object);
    const auto states = bus_.states(object);
    const auto interfaces = bus_.interfaces(object);
    if (!role || !states || !interfaces) return std::nullopt;
    field.role = *role;
    for (const std::string& interface : *interfaces) {
        field.hasText = field.hasText || interface == "org.a11y.atspi.Text";
        field.hasEditableText = field.hasEditableText || interface == "org.a11y.atspi.EditableText";
    }
    FieldDescription& about = field.description;
    about.role = roleName(*role);
    about.isEditable = has(*states, AtSpiState::editable) && !has(*states, AtSpiState::readOnly);
    about.isSecure = *role == static_cast<unsigned>(AtSpiRole::passwordText);
    about.label = bus_.name(object).value_or("");
    auto attributes = bus_.attributes(object).value_or(std::map<std::string, std::string>{});
    if (attributes["text-input-type"] == "password") about.isSecure = true;
    about.placeholder = attributes.contains("placeholder") ? attributes["placeholder"] : attributes["placeholder-text"];
    about.identifier = attributes["id"];
    if (about.identifier.empty()) about.identifier = bus_.accessibleId(object).value_or("");
    if (about.identifier.empty()) about.identifier = object.path;
    // Qt has no place of its own for the hint.
    if (about.placeholder.empty()) about.placeholder = bus_.description(object).value_or("");
    if (const auto size = bus_.extents(object, AtSpiCoordinates::window)) {
        about.width = std::max(0, size->width);
        about.height = std::max(0, size->height);
    }
    if (bus_.timedOut()) return std::nullopt;
    return field;
}

std::shared_ptr<const AtSpiField> AtSpiFocusTracker::current() {
    const auto window = windows_.activeWindow();
    if (!window) return nullptr;
    if (focused_.isValid() && !field_ && describeAt_) describe();
    if (field_ && owns(*window, field_->processId)) return field_;
    if (!walking_ && !walkAt_) {
        walkTries_ = 0;
        scheduleWalk(std::chrono::milliseconds(0));
    }
    return nullptr;
}

void AtSpiFocusTracker::scheduleWalk(std::chrono::milliseconds delay) {
    walking_ = false;
    toWalk_.clear();
    walkAt_ = steadyNow() + delay;
}

void AtSpiFocusTracker::beginWalk() {
    walkAt_.reset();
    const auto window = windows_.activeWindow();
    if (!window) return;
    bus_.beginJob(jobBudget);
    if (focused_.isValid() && owns(*window, bus_.processId(focused_.bus))) return;
    walked_ = 0;
    walkWindow_ = {};
    walkCandidate_ = {};
    toWalk_.clear();
    for (const AtSpiReference& application : bus_.applications()) {
        const int process = bus_.processId(application.bus);
        if (process == getpid() || !owns(*window, process)) continue;
        const auto windows = bus_.children(application);
        if (!windows) continue;
        for (const AtSpiReference& candidate : *windows) {
            const auto states = bus_.states(candidate);
            if (states && has(*states, AtSpiState::active)) {
                walkWindow_ = candidate;
                toWalk_.push_back(candidate);
            }
        }
    }
    walking_ = !toWalk_.empty();
    // A program that is busy starting up has no tree yet; one without accessibility never has.
    if (!walking_ && ++walkTries_ < maxTries) walkAt_ = steadyNow() + retryDelay;
}

void AtSpiFocusTracker::walkStep() {
    if (toWalk_.empty() || walked_ >= maxWalkedObjects) return finishWalk();
    const AtSpiReference object = toWalk_.front();
    toWalk_.pop_front();
    ++walked_;
    if (!object.isValid()) return;
    bus_.beginJob(jobBudget);
    const auto states = bus_.states(object);
    if (states && has(*states, AtSpiState::focused)) {
        // Containers without text claim the focus too; a field that can be edited is what is looked for.
        walkCandidate_ = object;
        if (has(*states, AtSpiState::editable)) return finishWalk();
    }
    auto children = states ? bus_.children(object) : std::nullopt;
    if (bus_.timedOut()) {
        toWalk_.clear();
        return finishWalk();
    }
    if (children) toWalk_.insert(toWalk_.begin(), children->begin(), children->end());
}

void AtSpiFocusTracker::finishWalk() {
    walking_ = false;
    toWalk_.clear();
    if (walkWindow_.isValid()) window_ = walkWindow_;
    if (focused_.isValid() && focused_.bus == walkWindow_.bus) return;
    if (walkCandidate_.isValid())
        focus(walkCandidate_);
    else if (bus_.timedOut() && ++walkTries_ < maxTries)
        walkAt_ = steadyNow() + retryDelay;
}
} // namespace snipwren
