#include "ai/AIStreamReader.h"

#include <algorithm>

#include "ai/JsonScanner.h"
#include "base/Text.h"

namespace snipwren {
namespace {
constexpr std::string_view dataField = "data:";
constexpr std::string_view endOfStream = "[DONE]";

/// How many bytes at the end begin a character that is not there yet.
std::size_t unfinishedBytes(std::string_view text) {
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, text.size()); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? back : 0;
    }
    return 0;
}
} // namespace

bool AIStreamReader::fail(AIErrorKind kind, std::string description) {
    error_ = AIError{kind, std::move(description)};
    ended_ = true;
    return false;
}

bool AIStreamReader::feed(std::string_view bytes) {
    while (!ended_ && !bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (line_.size() + std::min(end, bytes.size()) > maxLineBytes)
            return fail(AIErrorKind::badResponse, "The answer held a line that was too long.");
        if (end == std::string_view::npos) {
            line_ += bytes;
            break;
        }
        if (line_.empty()) {
            takeLine(bytes.substr(0, end));
        } else {
            line_ += bytes.substr(0, end);
            takeLine(line_);
            line_.clear();
        }
        bytes.remove_prefix(end + 1);
    }
    return !ended_;
}

bool AIStreamReader::takeLine(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (format_ == Format::ollamaLines) return line.empty() || takeObject(line);
    if (!line.starts_with(dataField)) return true; // Event names, comments and blank lines.
    line.remove_prefix(dataField.size());
    if (line.starts_with(' ')) line.remove_prefix(1);
    if (line.empty()) return true;
    if (line == endOfStream) {
        complete_ = ended_ = true;
        return false;
    }
    return takeObject(line);
}

bool AIStreamReader::takeObject(std::string_view json) {
    piece_.clear();
    message_.clear();
    if (!json.starts_with('{') || !JsonScanner::scan(json, [this](const JsonLeaf& leaf) { takeLeaf(leaf); }))
        return fail(AIErrorKind::badResponse, format_ == Format::ollamaLines ? "Failed to parse Ollama response."
                                                                             : "Failed to parse response JSON.");
    if (!message_.empty())
        return fail(AIErrorKind::badResponse, "The service reported an error: " + sanitizedUtf8(message_));
    addText(piece_);
    return !ended_;
}

void AIStreamReader::takeLeaf(const JsonLeaf& leaf) {
    const bool isText = leaf.kind == JsonLeaf::Kind::string;
    const auto finished = [&](std::string_view limit) {
        if (!isText) return; // null until the last piece
        complete_ = true;
        answer_.isCutOff = leaf.raw == limit;
    };
    if (isText && (leaf.is({"error", "message"}) || leaf.is({"error"}))) {
        JsonScanner::appendUnescaped(message_, leaf.raw);
        return;
    }
    switch (format_) {
    case Format::openAIEvents:
        if (isText && leaf.is({"choices", "[0]", "delta", "content"}))
            JsonScanner::appendUnescaped(piece_, leaf.raw);
        else if (leaf.is({"choices", "[0]", "finish_reason"}))
            finished("length");
        break;
    case Format::anthropicEvents:
        if (isText && leaf.is({"delta", "text"}))
            JsonScanner::appendUnescaped(piece_, leaf.raw);
        else if (leaf.is({"delta", "stop_reason"}))
            finished("max_tokens");
        else if (isText && leaf.is({"type"}) && leaf.raw == "message_stop")
            complete_ = ended_ = true;
        break;
    case Format::ollamaLines:
        if (isText && leaf.is({"message", "content"}))
            JsonScanner::appendUnescaped(piece_, leaf.raw);
        else if (leaf.is({"done"}) && leaf.raw == "true")
            complete_ = ended_ = true;
        else if (isText && leaf.is({"done_reason"}))
            answer_.isCutOff = leaf.raw == "length";
        break;
    }
}

void AIStreamReader::addText(std::string_view piece) {
    if (piece.empty()) return;
    if (answer_.text.size() + piece.size() > maxAnswerBytes) {
        fail(AIErrorKind::badResponse, "The answer was larger than allowed.");
        return;
    }
    character_ += piece;
    const std::size_t held = unfinishedBytes(character_);
    std::string whole = character_.substr(0, character_.size() - held);
    character_.erase(0, whole.size());
    if (whole.empty()) return;
    if (!isValidUtf8(whole)) whole = sanitizedUtf8(whole);
    answer_.text += whole;
    if (onText_) onText_(whole);
}

Result<AIAnswer, AIError> AIStreamReader::finish() {
    if (!ended_ && !line_.empty()) takeLine(line_);
    if (error_) return unexpected(*error_);
    if (!character_.empty()) {
        const std::string rest = sanitizedUtf8(character_);
        answer_.text += rest;
        if (onText_) onText_(rest);
    }
    if (!complete_)
        return unexpected(AIError{AIErrorKind::incomplete, "The answer broke off before its end. Try again."});
    return answer_;
}
} // namespace snipwren
