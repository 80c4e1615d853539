#pragma once

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "base/Text.h"
#include "hosts/virtual/VirtualField.h"

namespace snipwren {
/// One key of a random run; owns its characters.
struct TypedKey {
    int code = 0;
    std::string characters;
    Modifiers modifiers;
    bool isComposing = false;

    bool typesText() const {
        return !characters.empty() && static_cast<unsigned char>(characters[0]) >= 0x20 && characters[0] != '\xEF';
    }
    KeyEvent event() const {
        KeyEvent made;
        made.keyCode = code;
        made.characters = characters;
        made.modifiers = modifiers;
        made.isComposing = isComposing;
        return made;
    }
};

/// What the user may expect, whatever the timing: whose each key is, what each field and each target holds then. A field
/// is known by its twin, which gets every key of the host, and loses each trigger at the moment it is completed.
struct TypingModel {
    struct Field {
        std::string bundleId;
        VirtualField twin;
        bool isExcluded = false;
        /// Ctrl+Z brings back what the twin says: nobody else removed anything since the user did.
        bool isUndoKnown = false;
        /// What it may hold instead until everything has come to rest.
        std::vector<VirtualField> orElse;
    };
    struct Letter {
        char32_t scalar;
        bool isCertain;
    };
    struct Retained {
        std::size_t field;
        std::vector<Letter> text;
        SteadyPoint since;
    };
    static constexpr std::size_t rememberedLetters = 100;

    std::vector<Field> fields;
    std::size_t focused = 0;
    bool isSecureInput = false;
    bool diskRefuses = false;
    std::set<std::string> missingTargets;
    std::vector<std::string> words;

    /// What was typed since the last event whose effect nobody knows, oldest first.
    std::vector<Letter> letters;
    bool isDoubted = false;
    std::size_t typedInto = 0;
    std::deque<Retained> retained;

    /// The command word of the open capture; empty outside.
    std::string capture;
    std::string message;
    /// Return was pressed while the disk takes nothing: until that is known, keys are the host's, who gets them once the
    /// capture has closed.
    bool isRefused = false;
    std::vector<TypedKey> owedToHost;
    std::map<std::string, std::vector<std::string>> sent;

    /// Something is on its way since everything came to rest: `hostKeys` of the host were typed meanwhile.
    bool isInFlight = false;
    std::size_t hostKeys = 0;
    /// Backspaces that may be posted since then.
    std::size_t backspaces = 0;
    /// The last trigger: how its field looks while the trigger is still in it.
    struct Trigger {
        std::size_t field;
        VirtualField unstripped;
        std::size_t length;
    };
    std::optional<Trigger> trigger;

    bool isCapturing() const { return !capture.empty(); }
    bool isUnwatched() const {
        const Field& field = fields[focused];
        return isSecureInput || field.isExcluded || field.twin.kind() == VirtualFieldKind::password;
    }

    void key(const TypedKey& key) {
        if (!isCapturing()) return hostKey(key);
        if (isRefused) return owedToHost.push_back(key);
        captureKey(key);
    }
    void click(std::optional<std::size_t> caret) {
        interrupt(false);
        if (caret) change([&](VirtualField& field) { field.setCaret(*caret); });
        isDoubted = true;
    }
    /// `isToldLate`: cannot be told from news of the field that the trigger was typed into.
    void focus(std::size_t field, bool isToldLate, SteadyPoint now) {
        interrupt(false);
        focused = field;
        if (field == typedInto) return;
        if (!isToldLate) {
            forgetRetained(typedInto);
            if (!letters.empty()) retained.push_back({typedInto, letters, now});
            if (retained.size() > 2) retained.pop_front();
            letters.clear();
            isDoubted = false;
            std::erase_if(retained, [&](const Retained& text) { return now - text.since > std::chrono::seconds(120); });
            for (const Retained& text : retained)
                if (text.field == field) letters = text.text;
            for (Letter& letter : letters) letter.isCertain = false;
            forgetRetained(field);
        }
        typedInto = field;
    }
    /// The user did something elsewhere while the last trigger was, perhaps, still being removed: it may stay where it is,
    /// and if Backspaces were under way, any beginning of it.
    void interrupt(bool amongBackspaces) {
        if (!isInFlight || !trigger) return;
        std::vector<VirtualField>& others = fields[trigger->field].orElse;
        others.push_back(trigger->unstripped);
        for (std::size_t taken = 1; amongBackspaces && taken < trigger->length; ++taken) {
            VirtualField part = trigger->unstripped;
            part.select({part.caret() - taken, taken});
            part.insert("");
            others.push_back(part);
        }
    }
    void resetField(std::size_t field, const std::string& text) {
        fields[field].twin.setText(text);
        isDoubted = true;
    }
    /// Nothing is on its way any more, and every field holds what its twin does.
    void rested() {
        isInFlight = false;
        hostKeys = backspaces = 0;
        trigger.reset();
        isRefused = false;
        for (Field& field : fields) field.orElse.clear();
    }
    /// A trigger whose capture never opens stays in the text; only its terminator is gone.
    void passOverTrigger() {
        letters.clear();
        isInFlight = true;
        trigger.reset();
    }

private:
    void forgetRetained(std::size_t field) {
        std::erase_if(retained, [&](const Retained& text) { return text.field == field; });
    }
    template <class F>
    void change(F&& function) {
        function(fields[focused].twin);
        for (VirtualField& other : fields[focused].orElse) function(other);
    }
    void toField(const TypedKey& key) {
        if (isInFlight) ++hostKeys;
        if (isInFlight && key.code == keycode::deleteKey) ++backspaces;
        const std::size_t before = utf16Length(fields[focused].twin.text());
        change([&](VirtualField& field) { field.apply(key.event()); });
        if (utf16Length(fields[focused].twin.text()) < before) fields[focused].isUndoKnown = true;
    }

    void hostKey(const TypedKey& key) {
        const bool isModifier = key.code >= 54 && key.code <= 63;
        if (isUnwatched()) {
            letters.clear();
            return toField(key);
        }
        if (isModifier) return;
        if (isDoubted) letters.clear();
        isDoubted = false;
        if (key.modifiers.makeShortcut()) {
            letters.clear();
        } else if (key.code == keycode::space || key.code == keycode::returnKey) {
            if (endsTrigger()) return;
            remember(key.code == keycode::space ? U' ' : U'\n');
        } else if (key.code == keycode::deleteKey) {
            forgetLast();
        } else if (key.isComposing) {
            return;
        } else if (!key.typesText()) {
            letters.clear();
        } else {
            for (std::size_t i = 0; i < key.characters.size();) remember(nextScalar(key.characters, i));
        }
        toField(key);
    }

    void remember(char32_t scalar) {
        letters.push_back({scalar, true});
        if (letters.size() > rememberedLetters) letters.erase(letters.begin());
    }
    /// What Backspace does to a character of several parts depends on the program, and what Return did to the text too.
    void forgetLast() {
        if (letters.empty()) return;
        std::string text;
        for (const Letter& letter : letters) appendUtf8(text, letter.scalar);
        const bool isPlain = codePointCount(text.substr(lastCharacterStart(text))) == 1;
        if (!isPlain || letters.back().scalar == U'\n')
            letters.clear();
        else
            letters.pop_back();
    }

    bool endsTrigger() {
        for (const std::string& word : words) {
            const std::string wanted = "//" + word;
            if (letters.size() < wanted.size()) continue;
            const std::size_t start = letters.size() - wanted.size();
            bool isEqual = true, isCertain = true;
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                const Letter& letter = letters[start + i];
                const char32_t small =
                    letter.scalar >= U'A' && letter.scalar <= U'Z' ? letter.scalar + 32 : letter.scalar;
                isEqual = isEqual && small == static_cast<char32_t>(wanted[i]);
                isCertain = isCertain && letter.isCertain;
            }
            if (!isEqual) continue;
            if (start > 0 && (letters[start - 1].scalar == U':' || letters[start - 1].scalar == U'/')) {
                letters.clear(); // What is forbidden once is not found by a later key.
                return false;
            }
            passOverTrigger();
            if (missingTargets.contains(word)) return true;
            capture = word;
            message.clear();
            removeTrigger(word, wanted.size(), isCertain);
            return true;
        }
        return false;
    }
    void removeTrigger(const std::string& word, std::size_t length, bool isCertain) {
        Field& field = fields[focused];
        const VirtualFieldKind kind = field.twin.kind();
        const bool isVisible = kind != VirtualFieldKind::inaccessible && kind != VirtualFieldKind::hanging;
        if (!isVisible && !isCertain) return;
        const bool isEditable =
            kind == VirtualFieldKind::plain || kind == VirtualFieldKind::multiline || kind == VirtualFieldKind::slow;
        const auto strip = [&](VirtualField& twin) {
            const std::u16string text = toUtf16(twin.text());
            for (const std::size_t end : {twin.caret(), isEditable ? text.size() : twin.caret()}) {
                if (end < length || asciiLowercased(toUtf8(text.substr(end - length, length))) != "//" + word) continue;
                twin.select({end - length, length});
                twin.insert("");
                return true;
            }
            return false;
        };
        const VirtualField unstripped = field.twin;
        for (VirtualField& other : field.orElse) strip(other);
        if (!strip(field.twin)) return;
        if (!isEditable) backspaces += length;
        trigger = Trigger{focused, unstripped, length};
        field.isUndoKnown = false;
    }

    void captureKey(const TypedKey& key) {
        if (key.modifiers.makeShortcut()) return;
        switch (key.code) {
        case keycode::returnKey:
        case keycode::keypadEnter:
            isInFlight = true;
            if (diskRefuses) {
                isRefused = true;
                return;
            }
            sent[capture].push_back(message);
            return endCapture();
        case keycode::escape: isInFlight = true; return endCapture();
        case keycode::deleteKey: message.resize(lastCharacterStart(message)); return;
        default:
            if (key.typesText()) message += key.characters;
        }
    }
    void endCapture() {
        capture.clear();
        message.clear();
        std::vector<TypedKey> owed;
        owed.swap(owedToHost);
        for (const TypedKey& key : owed) this->key(key);
    }
};
} // namespace snipwren
