#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ai/AIProvider.h"

namespace snipwren {
struct JsonLeaf;

/// Puts an answer together from a provider's streamed reply, which may be cut into pieces anywhere, in the middle of a
/// line or of a character. Not thread safe.
class AIStreamReader {
public:
    enum class Format { anthropicEvents, openAIEvents, ollamaLines };
    static constexpr std::size_t maxLineBytes = 1024 * 1024;
    static constexpr std::size_t maxAnswerBytes = 4 * 1024 * 1024;

    AIStreamReader(Format format, AIProvider::TextHandler onText) : format_(format), onText_(std::move(onText)) {}

    /// False when nothing more is needed: the answer has ended, or a fault was found.
    bool feed(std::string_view bytes);
    /// To be called once the reply has ended: what is left of the last line, and the verdict.
    Result<AIAnswer, AIError> finish();
    /// True when the end of the answer was seen.
    bool isComplete() const { return complete_; }

private:
    bool takeLine(std::string_view line);
    bool takeObject(std::string_view json);
    void takeLeaf(const JsonLeaf& leaf);
    void addText(std::string_view piece);
    bool fail(AIErrorKind kind, std::string description);

    const Format format_;
    const AIProvider::TextHandler onText_;
    /// The beginning of a line whose end has not come yet.
    std::string line_;
    /// The beginning of a character whose end has not come yet.
    std::string character_;
    AIAnswer answer_;
    std::string piece_, message_;
    bool complete_ = false;
    bool ended_ = false;
    std::optional<AIError> error_;
};
} // namespace snipwren
