#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Log.h"
#include "platform/FocusedField.h"
#include "platform/KeyboardTap.h"

namespace snipwren {
/// Puts an answer where the selected text stands: by an accessibility write that is read back, else by typing. It writes
/// only while the field, the selection and the text are still those that the answer was asked for, and never twice.
/// Blocking; any thread but the main one.
class AIAnswerWriter {
public:
    /// How often and how long a program is given to show what was written.
    static constexpr int readBackAttempts = 8;
    static constexpr std::chrono::milliseconds readBackPause{25};

    struct Dependencies {
        FocusedField& fields;
        SyntheticKeyboard& keyboard;
        Log& log;
        /// Waits between two looks at the field.
        std::function<void(std::chrono::milliseconds)> pause;
    };
    /// A field and its selection at one moment.
    struct Target {
        FieldDescription description;
        Utf16Range range;
        std::string selectedText;
        std::string value;
    };

    explicit AIAnswerWriter(Dependencies dependencies) : d_(std::move(dependencies)) {}

    /// None when the focused field cannot be read.
    std::optional<Target> capture() const;
    /// None when the answer stands in the field; otherwise a sentence that says why it does not.
    std::optional<std::string> write(const Target& target, const std::string& answer) const;

private:
    std::optional<std::string> type(FieldElement& element, const Target& target, const std::string& expected,
                                    const std::string& answer) const;
    /// The field's value once it is as expected, or the last one seen.
    std::optional<std::string> readBack(FieldElement& element, const std::string& expected) const;

    const Dependencies d_;
};
} // namespace snipwren
