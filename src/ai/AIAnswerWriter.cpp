#include "ai/AIAnswerWriter.h"

#include <algorithm>

namespace snipwren {
namespace {
constexpr const char* fieldChanged = "The text field changed while the answer was being written.";
constexpr const char* fieldSilent = "The program did not confirm the change.";
constexpr const char* severalLines =
    "The answer has several lines, and typing them could send or submit what you wrote.";
constexpr const char* typingFailed = "The answer could not be typed into this program.";

bool isSameField(const FieldDescription& one, const FieldDescription& other) {
    return one.role == other.role && one.identifier == other.identifier && one.label == other.label
           && one.windowTitle == other.windowTitle && one.width == other.width && one.height == other.height;
}

/// A Return or a Tab means something to a program besides the character.
bool isSafeToType(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}
} // namespace

std::optional<AIAnswerWriter::Target> AIAnswerWriter::capture() const {
    const auto element = d_.fields.focusedElement();
    if (!element) return std::nullopt;
    const auto description = element->describe();
    if (!description || description->isSecure || !description->isEditable) return std::nullopt;
    const auto value = element->value();
    const auto range = element->selectedRange();
    if (!value || !range) return std::nullopt;
    const std::size_t start = utf8Offset(*value, range->start);
    const std::size_t end = utf8Offset(*value, range->start + range->length);
    return Target{*description, *range, value->substr(start, end - start), *value};
}

std::optional<std::string> AIAnswerWriter::readBack(FieldElement& element, const std::string& expected) const {
    std::optional<std::string> seen;
    for (int attempt = 0; attempt < readBackAttempts; ++attempt) {
        if (attempt > 0) d_.pause(readBackPause);
        seen = element.value();
        if (seen == expected) break;
    }
    return seen;
}

std::optional<std::string> AIAnswerWriter::write(const Target& target, const std::string& answer) const {
    const auto now = capture();
    const auto element = d_.fields.focusedElement();
    if (!now || !element || !isSameField(now->description, target.description) || now->value != target.value
        || now->range != target.range)
        return fieldChanged;

    const std::size_t start = utf8Offset(target.value, target.range.start);
    std::string expected = target.value;
    expected.replace(start, target.selectedText.size(), answer);
    const EditOutcome outcome = element->replaceRange(target.range, answer);
    const auto seen = readBack(*element, expected);
    if (seen == expected) {
        d_.log.line("✅ AI Direct AX write verified successfully: '" + characterCount(answer) + "'");
        return std::nullopt;
    }
    // A write that may still take effect must not be followed by a second one.
    if (outcome == EditOutcome::unknown || !seen) return fieldSilent;
    if (seen != target.value) return fieldSilent;
    return type(*element, target, expected, answer);
}

std::optional<std::string> AIAnswerWriter::type(FieldElement& element, const Target& target,
                                                const std::string& expected, const std::string& answer) const {
    if (!isSafeToType(answer)) return severalLines;
    if (element.selectedRange() != target.range) return fieldChanged;
    d_.log.line("Using synthetic keystroke insertion for AI: '" + characterCount(answer) + "'");
    if (!d_.keyboard.typeText(answer)) return typingFailed;
    if (readBack(element, expected) != expected) return fieldSilent;
    return std::nullopt;
}
} // namespace snipwren
