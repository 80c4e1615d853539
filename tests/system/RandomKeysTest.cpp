// Random typing with everything that happens to a keyboard, against a model that knows whose each key is. A failure
// names its seed and prints the shortest run that was found to fail:
//   SNIPWREN_SEED=7 SNIPWREN_KEYS=5000000 ./system_tests
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>

#include <gtest/gtest.h>

#include "support/CaptureRig.h"
#include "system/TypingModel.h"

namespace snipwren {
namespace {
// Builds that are not optimised, those of the sanitizers among them, take ten times as long.
#ifdef __OPTIMIZE__
constexpr std::size_t defaultKeys = 1'000'000;
#else
constexpr std::size_t defaultKeys = 100'000;
#endif

struct Op {
    enum class Kind {
        key,
        /// One queue (`number`) runs what is ready.
        turn,
        settle,
        click,
        focus,
        focusAmongBackspaces,
        secureOn,
        secureOff,
        targetMissing,
        targetReady,
        slowOverlay,
        quickOverlay,
        /// The walk into the capture does not come to an end in time.
        stuck,
        diskRefuses,
        diskWorks,
        wait,
        menu,
        resetField,
    };
    Kind kind = Kind::key;
    TypedKey key{};
    std::size_t number = 0;
    std::string text{};
};
using Snippet = std::vector<Op>;

struct FieldPlan {
    const char* bundleId;
    VirtualFieldKind kind;
    const char* label;
};
constexpr FieldPlan fieldPlans[] = {
    {"com.example.editor", VirtualFieldKind::plain, "Text"},
    {"com.example.mail", VirtualFieldKind::multiline, "Body"},
    {"com.example.outliner", VirtualFieldKind::structured, "Page"},
    {"com.example.custom", VirtualFieldKind::lying, "Canvas"},
    {"com.example.terminal", VirtualFieldKind::inaccessible, "First"},
    {"com.example.terminal", VirtualFieldKind::inaccessible, "Second"},
    {"com.example.busy", VirtualFieldKind::hanging, "Stuck"},
    {"com.example.heavy", VirtualFieldKind::slow, "Slow"},
    {"com.example.bank", VirtualFieldKind::password, "Password"},
    {"com.example.private", VirtualFieldKind::plain, "Excluded"},
};
constexpr std::size_t fieldCount = std::size(fieldPlans);
/// Those before it are for everybody to type into; then comes the password's, and one that keys are not looked at in.
constexpr std::size_t openFields = fieldCount - 2;
constexpr std::size_t longestText = 300;
/// "slack" asks for a choice first, which this test leaves to others.
constexpr const char* targetWords[] = {"note", "reminders", "copy", "timer", "calc", "obsidian"};

std::string readable(const std::string& text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            shown += "\\n";
        else if (byte < 0x20 || byte == 0x7F)
            shown += "\\x" + std::string(1, "0123456789abcdef"[byte >> 4]) + "0123456789abcdef"[byte & 15];
        else
            shown += c;
    }
    return shown;
}

std::string describe(const Op& op) {
    using enum Op::Kind;
    const std::string number = std::to_string(op.number);
    switch (op.kind) {
    case key: {
        const Modifiers& m = op.key.modifiers;
        std::string held =
            std::string(m.control ? "Ctrl+" : "") + (m.option ? "Alt+" : "") + (m.command ? "Super+" : "");
        if (op.key.isComposing) return "<dead key>";
        if (op.key.code == keycode::deleteKey) return "<" + held + "Backspace>";
        if (op.key.code == keycode::returnKey) return "<Return>";
        if (op.key.code == keycode::escape) return "<Escape>";
        if (!held.empty() || !op.key.typesText())
            return "<" + held + std::to_string(op.key.code) + readable(op.key.characters) + ">";
        return op.key.characters;
    }
    case turn: return "{turn " + number + "}";
    case settle: return "{settle}";
    case click: return "{click" + (op.text.empty() ? "" : " at " + number) + "}";
    case focus: return "{focus " + number + "}";
    case focusAmongBackspaces: return "{focus " + number + " among Backspaces}";
    case secureOn: return "{secure on}";
    case secureOff: return "{secure off}";
    case targetMissing: return "{missing " + op.text + "}";
    case targetReady: return "{ready " + op.text + "}";
    case slowOverlay: return "{slow overlay}";
    case quickOverlay: return "{quick overlay}";
    case stuck: return "{stuck}";
    case diskRefuses: return "{disk refuses}";
    case diskWorks: return "{disk works}";
    case wait: return "{wait " + number + " ms}";
    case menu: return "{menu " + op.text + "}";
    case resetField: return "{reset}";
    }
    return {};
}

/// Carries out a run on the virtual desktop and on the model, and says where the two differ.
class Session {
public:
    Session() {
        rig_.exclusions.excluded = "com.example.private";
        for (std::size_t i = 0; i < fieldCount; ++i) {
            const FieldPlan& plan = fieldPlans[i];
            ids_.push_back(i == 0 ? rig_.field : rig_.desktop.addField(plan.bundleId, plan.kind, plan.label));
            model_.fields.push_back({plan.bundleId,
                                     VirtualField(plan.kind, plan.label, "", {}),
                                     plan.bundleId == rig_.exclusions.excluded,
                                     false,
                                     {}});
            setText(i, "precious ");
        }
        model_.words = rig_.targets.commandWords();
        rig_.pause = [this](std::chrono::microseconds) { paused(); };
    }

    /// The difference after the snippet; none when all is well.
    const std::optional<std::string>& run(const Snippet& snippet) {
        for (const Op& op : snippet) {
            if (difference_) break;
            apply(op);
        }
        return difference_;
    }
    /// Ends whatever is open, and looks at what is on the disk.
    const std::optional<std::string>& end() {
        run({{.kind = Op::Kind::settle}, {.key = {keycode::escape, "\x1b", {}, false}}, {.kind = Op::Kind::settle}});
        if (difference_) return difference_;
        const auto entries = rig_.journal.entries();
        if (!entries) return difference_ = "the journal cannot be read";
        for (const auto& entry : *entries)
            if (entry.isOpen()) return difference_ = "the journal has an open capture: " + readable(entry.text);
        if (!rig_.saved().empty()) difference_ = "the recovery log has: " + readable(rig_.saved().front());
        return difference_;
    }
    std::size_t keys() const { return keys_; }
    std::size_t captures() const { return captures_; }

private:
    void apply(const Op& op) {
        using enum Op::Kind;
        switch (op.kind) {
        case key: return press(op.key);
        case turn: return turnOf(op.number);
        case settle: return settleAll();
        case click:
            settleBeforeMoving();
            rig_.desktop.click(op.text.empty() ? std::nullopt : std::optional(op.number));
            return model_.click(op.text.empty() ? std::nullopt : std::optional(op.number));
        case focus: {
            const FieldPlan& plan = fieldPlans[op.number];
            // Secrets and muted programs are entered at rest: what is typed there passes the keys on their way.
            if (plan.kind == VirtualFieldKind::password || op.number == fieldCount - 1) settleAll();
            // So far what is typed behind a capture is looked at in muted programs too.
            if (op.number == fieldCount - 1 && model_.isCapturing()) return;
            settleBeforeMoving();
            return focusOn(op.number);
        }
        case focusAmongBackspaces:
            settleAll();
            focusAtPause_ = op.number;
            pausesLeft_ = 2;
            return;
        case secureOn:
        case secureOff:
            settleAll();
            model_.isSecureInput = op.kind == secureOn;
            return rig_.desktop.setSecureInput(op.kind == secureOn);
        case targetMissing:
        case targetReady:
            settleAll();
            if (op.kind == targetMissing) {
                model_.missingTargets.insert(op.text);
                rig_.target(op.text).missing = "Not there.";
            } else {
                model_.missingTargets.erase(op.text);
                rig_.target(op.text).missing.reset();
            }
            return;
        case slowOverlay:
        case quickOverlay: return rig_.overlay.setTakesKeyboardAtOnce(op.kind == quickOverlay);
        case stuck: return getStuck();
        case diskRefuses:
        case diskWorks:
            settleAll();
            model_.diskRefuses = op.kind == diskRefuses;
            rig_.files.failAllFromThen = model_.diskRefuses;
            rig_.files.failAt = model_.diskRefuses ? rig_.files.operations + 1 : 0;
            return;
        case wait:
            settleAll();
            rig_.queue.advance(std::chrono::milliseconds(op.number));
            return settleAll();
        case menu:
            settleAll();
            if (model_.isCapturing() || model_.focused == fieldCount - 1) return;
            model_.capture = op.text;
            model_.message = "brought along";
            model_.isInFlight = true;
            rig_.router->enterCaptureModeUI(rig_.target(op.text), "brought along");
            rig_.queue.runReady(); // A menu's choice is made on the main queue.
            return;
        case resetField:
            settleAll();
            for (std::size_t i = 0; i < fieldCount; ++i)
                if (model_.fields[i].twin.text().size() > longestText) setText(i, "precious ");
            rig_.desktop.click();
            model_.isDoubted = true;
            return;
        }
    }

    void press(TypedKey key) {
        const bool mayPassOthers = model_.isUnwatched() && !rig_.overlay.hasKeyboard();
        if (model_.isInFlight && mayPassOthers) settleAll();
        if (model_.isCapturing() && key.code == keycode::tab) return; // Takes an offered text: another test's business.
        if (key.modifiers.control && key.characters == "z" && !model_.fields[model_.focused].isUndoKnown)
            key = {keycode::unknown, "", {.control = true}, false};
        if (!model_.isCapturing() && model_.fields[model_.focused].orElse.size() > 8) settleAll();
        ++keys_;
        rig_.desktop.press(key.event());
        const bool wasCapturing = model_.isCapturing();
        if (!wasCapturing && (key.code == keycode::space || key.code == keycode::returnKey) && !model_.isInFlight) {
            beforeTrigger_ = model_;
            sinceTrigger_.clear();
        } else if (beforeTrigger_) {
            sinceTrigger_.push_back(key);
        }
        model_.key(key);
        if (!wasCapturing && model_.isCapturing()) ++captures_;
    }
    void turnOf(std::size_t number) {
        // Whose the keys are that cross the disk's refusal is anybody's guess: here they are typed before it is known.
        if (model_.isRefused) return;
        ManualQueue* const queues[] = {&rig_.queue,     &rig_.transitionQueue, &rig_.journalQueue,
                                       &rig_.laneQueue, &rig_.historyQueue,    &rig_.processing};
        queues[number % std::size(queues)]->runReady();
    }
    /// Keys of the host that are still on their way would come into another place than the one they were typed into.
    void settleBeforeMoving() {
        if (model_.isInFlight && model_.hostKeys > 0) settleAll();
        if (model_.isInFlight) beforeTrigger_.reset();
    }
    void focusOn(std::size_t field) {
        const bool isToldLate =
            rig_.router->phase() == CapturePhase::stripping
            && std::string_view(fieldPlans[field].bundleId) != fieldPlans[model_.typedInto].bundleId;
        rig_.desktop.focus(ids_[field]);
        model_.focus(field, isToldLate, rig_.clock.steadyNow());
    }
    void paused() {
        if (!focusAtPause_ || --pausesLeft_ > 0) return;
        const std::size_t field = *focusAtPause_;
        focusAtPause_.reset();
        if (model_.hostKeys > 0) return;
        beforeTrigger_.reset();
        model_.interrupt(true);
        focusOn(field);
    }
    void getStuck() {
        if (!beforeTrigger_ || !model_.isInFlight || rig_.router->phase() != CapturePhase::stripping)
            return settleAll();
        rig_.queue.advance(CaptureRouterController::failsafeInterval
                           * (CaptureRouterController::maxFailsafeAttempts + 1));
        model_ = *beforeTrigger_;
        model_.passOverTrigger();
        beforeTrigger_.reset();
        for (const TypedKey& key : sinceTrigger_) model_.key(key);
        settleAll();
    }
    void settleAll() {
        rig_.settle();
        while (rig_.overlay.isVisible() && !rig_.overlay.hasKeyboard()) {
            rig_.queue.sync([this] { rig_.overlay.takeKeyboard(); });
            rig_.settle();
        }
        beforeTrigger_.reset();
        focusAtPause_.reset();
        if (!difference_) compare();
        model_.rested();
    }

    void compare() {
        for (std::size_t i = 0; i < fieldCount; ++i) {
            TypingModel::Field& field = model_.fields[i];
            const auto [text, caret] = rig_.desktop.with(ids_[i], [](VirtualField& real) {
                for (int look = 0; look < 3; ++look) real.shownText(); // At rest a slow field shows all.
                return std::pair(real.text(), real.selection());
            });
            const auto isAs = [&, &text = text, &caret = caret](const VirtualField& twin) {
                return twin.text() == text && twin.selection() == caret;
            };
            if (isAs(field.twin)) continue;
            bool isFound = false;
            for (const VirtualField& other : field.orElse)
                if (!isFound && isAs(other)) {
                    field.twin = VirtualField(other);
                    isFound = true;
                }
            if (isFound) continue;
            return differ("field " + std::to_string(i) + " (" + fieldPlans[i].label + ")", text, field.twin.text());
        }
        for (const char* const word : targetWords)
            if (rig_.target(word).sent != model_.sent[word])
                return differ(word, listed(rig_.target(word).sent), listed(model_.sent[word]));
        const CapturePhase wanted = model_.isCapturing() ? CapturePhase::capturing : CapturePhase::idle;
        if (rig_.router->phase() != wanted)
            return differ("phase", std::to_string(static_cast<int>(rig_.router->phase())),
                          std::to_string(static_cast<int>(wanted)));
        if (model_.isCapturing() && rig_.router->state().messageInput != model_.message)
            return differ("message", rig_.router->state().messageInput, model_.message);
        const auto synthetic = rig_.desktop.syntheticKeys();
        const auto posted = static_cast<std::size_t>(
            std::count(synthetic.begin() + static_cast<std::ptrdiff_t>(looked_), synthetic.end(), keycode::deleteKey));
        looked_ = synthetic.size();
        if (posted > model_.backspaces)
            differ("Backspaces", std::to_string(posted), "at most " + std::to_string(model_.backspaces));
    }
    void differ(const std::string& what, const std::string& got, const std::string& wanted) {
        difference_ = what + "\n  is:     \"" + readable(got) + "\"\n  wanted: \"" + readable(wanted) + "\"";
    }
    static std::string listed(const std::vector<std::string>& texts) {
        std::string list;
        for (std::size_t i = texts.size() > 4 ? texts.size() - 4 : 0; i < texts.size(); ++i) list += texts[i] + " | ";
        return list + std::to_string(texts.size());
    }
    void setText(std::size_t field, const std::string& text) {
        rig_.desktop.with(ids_[field], [&](VirtualField& real) { real.setText(text); });
        model_.fields[field].twin.setText(text);
    }

    CaptureRig rig_;
    std::vector<VirtualDesktop::FieldId> ids_;
    TypingModel model_;
    /// As it was when the last trigger was about to be completed, and what was typed since.
    std::optional<TypingModel> beforeTrigger_;
    std::vector<TypedKey> sinceTrigger_;
    std::optional<std::size_t> focusAtPause_;
    int pausesLeft_ = 0;
    std::optional<std::string> difference_;
    std::size_t looked_ = 0;
    std::size_t keys_ = 0;
    std::size_t captures_ = 0;
};

/// What people do, in pieces of a few keys: triggers and what may come between, more often than people do.
class Generator {
public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    Snippet snippet() {
        Snippet made;
        made_ = &made;
        pace_ = static_cast<Pace>(below(4) % 3);
        switch (below(40)) {
        case 0:
        case 1:
        case 2: capture(); break;
        case 3:
            capture();
            letters(6);
            capture();
            break;
        case 4:
        case 5:
            text("//" + word() + terminator());
            letters(8);
            escape();
            break;
        case 6:
        case 7:
        case 8: interrupted(); break;
        case 9: nearTrigger(); break;
        case 10: corrected(); break;
        case 11:
            act(Op::Kind::focus, below(fieldCount));
            letters(10);
            break;
        case 12: behindTheTrigger(); break;
        case 13: secret(); break;
        case 14: notReady(); break;
        case 15: stuck(); break;
        case 16: slowOverlay(); break;
        case 17: badDisk(); break;
        case 18:
            if (below(3) == 0) fromMenu();
            break;
        case 19: fastestTyping(); break;
        case 20:
        case 21:
            shortcut();
            letters(8);
            break;
        case 22:
            caretKey();
            letters(8);
            break;
        case 23: act(Op::Kind::resetField); break;
        case 24: act(Op::Kind::wait, below(200'000)); break;
        case 25:
            click();
            letters(5);
            break;
        case 26: elsewhereDuringACapture(); break;
        case 27: secretBehindReturn(); break;
        default: letters(60);
        }
        if (below(10) < 7) act(Op::Kind::settle);
        return made;
    }

private:
    enum class Pace { slow, burst, mixed };

    std::size_t below(std::size_t limit) { return random_() % limit; }
    template <std::size_t n>
    auto oneOf(const char* const (&values)[n]) {
        return std::string(values[below(n)]);
    }

    void act(Op::Kind kind, std::size_t number = 0, const std::string& text = {}) {
        made_->push_back({.kind = kind, .number = number, .text = text});
    }
    void key(int code, const std::string& characters = {}, const Modifiers& modifiers = {}, bool isComposing = false) {
        made_->push_back({.key = {code, characters, modifiers, isComposing}});
        if (pace_ == Pace::slow) act(Op::Kind::settle);
        while (pace_ == Pace::mixed && below(3) == 0) act(Op::Kind::turn, below(6));
    }
    void scalar(char32_t character) {
        std::string characters;
        appendUtf8(characters, character);
        switch (character) {
        case U' ': return key(keycode::space, " ");
        case U'\n': return key(keycode::returnKey, "\r");
        case U'\b': return key(keycode::deleteKey, "\b");
        default: key(0, characters);
        }
    }
    void text(const std::string& typed) {
        for (std::size_t i = 0; i < typed.size();) scalar(nextScalar(typed, i));
    }
    void escape() { key(keycode::escape, "\x1b"); }

    void letters(std::size_t most) {
        static constexpr const char* rare[] = {
            "\u00e9", "e\u0301", "\U0001F600",   "\U0001F469\u200d\U0001F4BB", "/",  "//",
            ":",      ".",       "\u4f60\u597d", "\U0001F1E9\U0001F1EA",       "\t", "\n",
            "(",      "/ "};
        for (std::size_t left = 1 + below(most); left > 0; --left) {
            switch (below(24)) {
            case 0:
            case 1:
            case 2: text(" "); break;
            case 3:
            case 4: text("\b"); break;
            case 5: text(oneOf(rare)); break;
            case 6: key(keycode::shift); break;
            case 7:
                key(39, "", {}, true); // A dead key, and what comes of it.
                key(0, "\u00e1");
                break;
            case 8:
                if (below(6) == 0) key(0, "\u4f60\u597d"); // An input method types several at once.
                break;
            default: scalar(static_cast<char32_t>('a' + below(26)));
            }
        }
    }
    std::string word() {
        std::string chosen = oneOf(targetWords);
        if (below(3) == 0) chosen[0] = static_cast<char>(chosen[0] - 'a' + 'A');
        return chosen;
    }
    std::string terminator() { return below(4) == 0 ? "\n" : " "; }
    void capture() {
        if (below(2) == 0) text(" ");
        text("//" + word() + terminator());
        letters(10);
        if (below(6) == 0) letters(20);
        text("\n");
        if (below(2) == 0) letters(5);
    }
    void shortcut() {
        static constexpr struct {
            int code;
            const char* characters;
        } known[] = {{13, "w"}, {32, "u"}, {40, "k"}, {0, "a"}, {8, "c"}, {9, "v"}, {6, "z"}};
        const std::size_t chosen = below(std::size(known) + 2);
        if (chosen >= std::size(known))
            return key(keycode::deleteKey, "\b", {.control = chosen % 2 == 0, .option = chosen % 2 != 0});
        key(keycode::control, "", {.control = true});
        key(known[chosen].code, known[chosen].characters, {.control = true});
    }
    void caretKey() {
        static constexpr struct {
            int code;
            const char* characters;
        } known[] = {{keycode::leftArrow, "\uF702"},
                     {keycode::rightArrow, "\uF703"},
                     {keycode::home, "\uF729"},
                     {keycode::end, "\uF72B"},
                     {keycode::upArrow, "\uF700"},
                     {keycode::forwardDelete, "\uF728"},
                     {96, "\uF708"},
                     {keycode::escape, "\x1b"},
                     {keycode::tab, "\t"},
                     {keycode::keypadEnter, "\r"}};
        const auto& chosen = known[below(std::size(known))];
        key(chosen.code, chosen.characters);
    }
    void click() {
        if (below(2) == 0)
            act(Op::Kind::click);
        else
            act(Op::Kind::click, below(30), "caret");
    }
    /// Between two keys of a trigger.
    void interruption() {
        switch (below(8)) {
        case 0:
        case 1: return shortcut();
        case 2:
        case 3: return caretKey();
        case 4: return click();
        case 5: {
            act(Op::Kind::focus, below(fieldCount));
            if (below(2) == 0) letters(4);
            if (below(2) == 0) act(Op::Kind::focus, below(fieldCount));
            return;
        }
        case 6:
            act(Op::Kind::secureOn);
            if (below(2) == 0) letters(3);
            return act(Op::Kind::secureOff);
        default: key(39, "", {}, true); return;
        }
    }
    void interrupted() {
        const std::string whole = "//" + word();
        const std::size_t cut = below(whole.size() + 1);
        text(whole.substr(0, cut));
        const bool isThereAndBack = below(4) == 0;
        if (isThereAndBack) {
            const std::size_t field = below(openFields);
            act(Op::Kind::focus, field);
            text(whole.substr(0, cut));
            act(Op::Kind::focus, below(fieldCount));
            letters(3);
            act(Op::Kind::focus, field);
        } else {
            interruption();
        }
        text(whole.substr(cut) + terminator());
        letters(6);
        below(2) == 0 ? text("\n") : escape();
    }
    void nearTrigger() {
        static constexpr const char* near[] = {"https://note ",  "x:///copy ",  "///note ", "//notes ",
                                               "// note ",       "/note ",      "//no te ", "//\u00f1ote ",
                                               "http://timer\n", "a/b//calcs ", "//not "};
        text(oneOf(near));
    }
    void corrected() {
        static constexpr const char* cases[] = {"//notx\be ",        "x//note\b\b\b\bcopy ",
                                                "x///note \b/note ", "://copy \b\b\bpy ",
                                                "//no\n\bte ",       "//note\n\b\b",
                                                "a//copz\by ",       "/\b//timer ",
                                                "//note\u0301\b ",   "//cal\b\b\b\b\b\b//calc "};
        text(oneOf(cases));
        letters(4);
        below(2) == 0 ? text("\n") : escape();
    }
    /// The keyboard goes elsewhere just behind the trigger.
    void behindTheTrigger() {
        act(Op::Kind::focus, below(openFields));
        text("x ");
        if (below(3) == 0) act(Op::Kind::focusAmongBackspaces, below(openFields));
        const std::string whole = "//" + word() + terminator();
        text(whole);
        if (pace_ == Pace::slow) made_->pop_back(); // The settling.
        for (std::size_t turns = below(3); turns > 0; --turns) act(Op::Kind::turn, below(6));
        below(4) == 0 ? click() : act(Op::Kind::focus, below(openFields));
        letters(5);
        text("\n");
        letters(5);
    }
    void secret() {
        const bool isField = below(2) == 0;
        isField ? act(Op::Kind::focus, openFields + below(2)) : act(Op::Kind::secureOn);
        letters(6);
        if (below(2) == 0) text("//" + word() + " ");
        if (below(2) == 0) text("//no");
        isField ? act(Op::Kind::focus, below(fieldCount)) : act(Op::Kind::secureOff);
        if (below(2) == 0) text("te ");
        letters(3);
        escape();
    }
    void notReady() {
        const std::string chosen = oneOf(targetWords);
        act(Op::Kind::targetMissing, 0, chosen);
        if (below(2) == 0) capture();
        text(" //" + chosen + " ");
        letters(6);
        if (below(2) == 0) text(" //" + word() + " ");
        letters(3);
        below(2) == 0 ? text("\n") : escape();
        act(Op::Kind::targetReady, 0, chosen);
    }
    void stuck() {
        pace_ = Pace::burst;
        act(Op::Kind::settle);
        if (below(2) == 0) act(Op::Kind::focus, below(openFields));
        act(Op::Kind::settle);
        text("y //" + word() + " ");
        if (below(3) > 0) letters(6);
        if (below(4) == 0) capture();
        act(Op::Kind::stuck);
        letters(3);
        escape();
    }
    void slowOverlay() {
        act(Op::Kind::slowOverlay);
        capture();
        if (below(2) == 0) capture();
        act(Op::Kind::quickOverlay);
    }
    void badDisk() {
        text("//" + word() + " ");
        letters(5);
        act(Op::Kind::diskRefuses);
        text("\n");
        if (below(2) == 0) letters(4);
        if (below(4) == 0) capture();
        act(Op::Kind::diskWorks);
        letters(3);
        below(3) == 0 ? escape() : text("\n");
        letters(3);
    }
    void fromMenu() {
        const std::string whole = "//" + word();
        text(whole.substr(0, 3));
        act(Op::Kind::menu, 0, oneOf(targetWords));
        letters(4);
        below(2) == 0 ? text("\n") : escape();
        text(whole.substr(3) + " ");
        letters(3);
        escape();
    }
    void elsewhereDuringACapture() {
        const std::string whole = "//" + word();
        const std::size_t cut = below(whole.size() + 1);
        const std::size_t from = below(openFields), to = below(openFields);
        act(Op::Kind::focus, from);
        if (below(2) == 0)
            text("//" + word() + " ");
        else
            act(Op::Kind::menu, 0, oneOf(targetWords));
        act(Op::Kind::settle);
        act(Op::Kind::focus, to);
        letters(3);
        text("\n" + whole.substr(0, cut));
        if (below(2) == 0) act(Op::Kind::focus, from);
        text(whole.substr(cut) + " ");
        letters(3);
        escape();
    }
    /// A password is asked for while the overlay is open; what is typed for it waits behind the capture's Return.
    void secretBehindReturn() {
        text("//" + word() + " ");
        act(Op::Kind::settle);
        act(Op::Kind::secureOn);
        text("a\n");
        letters(2);
        text("//" + word() + " ");
        letters(2);
        act(Op::Kind::secureOff);
        escape();
    }
    /// Several captures before anything gets a turn.
    void fastestTyping() {
        pace_ = Pace::burst;
        for (std::size_t left = 2 + below(4); left > 0; --left) capture();
    }

    std::mt19937_64 random_;
    Snippet* made_ = nullptr;
    Pace pace_ = Pace::slow;
};

std::optional<std::string> replay(const std::vector<Snippet>& snippets) {
    Session session;
    for (const Snippet& snippet : snippets)
        if (const auto& difference = session.run(snippet)) return difference;
    return session.end();
}

/// Leaves out pieces, then single steps, as long as the run goes on failing.
std::string shrunk(std::vector<Snippet> snippets) {
    std::string difference = "(not repeatable)";
    int attempts = 1500;
    const auto fails = [&](const std::vector<Snippet>& tried) {
        if (--attempts < 0) return false;
        const auto found = replay(tried);
        if (found) difference = *found;
        return found.has_value();
    };
    const auto shrink = [&](auto& pieces, const auto& isStillFailing) {
        for (std::size_t size = std::max<std::size_t>(pieces.size() / 2, 1);; size /= 2) {
            for (std::size_t from = 0; from < pieces.size();) {
                auto fewer = pieces;
                const auto begin = fewer.begin() + static_cast<std::ptrdiff_t>(from);
                fewer.erase(begin, begin + static_cast<std::ptrdiff_t>(std::min(size, pieces.size() - from)));
                if (isStillFailing(fewer))
                    pieces = fewer;
                else
                    from += size;
            }
            if (size <= 1) return;
        }
    };
    if (!fails(snippets)) return difference;
    shrink(snippets, fails);
    Snippet all;
    for (const Snippet& snippet : snippets) all.insert(all.end(), snippet.begin(), snippet.end());
    shrink(all, [&](const Snippet& tried) { return fails({tried}); });
    std::string shown;
    for (const Op& op : all) shown += describe(op);
    (void)fails({all});
    return shown + "\n" + difference;
}

std::size_t fromEnvironment(const char* name, std::size_t otherwise) {
    const char* const text = std::getenv(name);
    return text ? static_cast<std::size_t>(std::strtoull(text, nullptr, 10)) : otherwise;
}

TEST(RandomKeys, EveryKeyHasOneOwnerAndNothingElseIsTakenAway) {
    const std::size_t total = fromEnvironment("SNIPWREN_KEYS", defaultKeys);
    const std::size_t firstSeed = fromEnvironment("SNIPWREN_SEED", 1);
    constexpr std::size_t keysOfARound = 8000;
    std::size_t keys = 0, captures = 0;
    const auto begun = std::chrono::steady_clock::now();
    for (std::size_t seed = firstSeed; keys < total; ++seed) {
        Generator generator(seed);
        Session session;
        std::vector<Snippet> snippets;
        std::optional<std::string> difference;
        while (!difference && session.keys() < keysOfARound) {
            snippets.push_back(generator.snippet());
            difference = session.run(snippets.back());
        }
        if (!difference) difference = session.end();
        ASSERT_FALSE(difference) << "seed " << seed << ", snippet " << snippets.size() << ": " << *difference
                                 << "\nshortest run found:\n"
                                 << shrunk(snippets);
        keys += session.keys();
        captures += session.captures();
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
    std::cout << keys << " keys, " << captures << " captures, " << taken.count() << " s\n";
}
} // namespace
} // namespace snipwren
