#include "context/notes/NoteText.h"

#include <algorithm>
#include <cstddef>

#include "base/Text.h"

namespace snipwren {
namespace {
constexpr auto npos = std::string_view::npos;

/// White space as regular expressions count it: all of Unicode's, without the zero-width space.
bool isSpace(char32_t scalar) { return scalar != 0x200B && isWhitespaceOrNewline(scalar); }

/// The end of the white space that begins at `offset`.
std::size_t skippedSpace(std::string_view text, std::size_t offset) {
    while (offset < text.size()) {
        std::size_t next = offset;
        if (!isSpace(nextScalar(text, next))) break;
        offset = next;
    }
    return offset;
}

/// "# " and the like at the very start of the text.
std::string_view withoutFirstHeading(std::string_view text) {
    const std::size_t hashes = text.find_first_not_of('#');
    if (hashes == 0 || hashes == npos) return text;
    const std::size_t after = skippedSpace(text, hashes);
    return after == hashes ? text : text.substr(after);
}

std::string withoutStarsAndUnderscores(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find_first_of("*_", start), text.size());
        out.append(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

/// Replaces `opening` label "](" target ")" by the label or by nothing. A label has no "]" and a target no ")"; both
/// may hold line feeds and further openings. Each bracket is looked for once, so that a text of nothing but brackets
/// costs no more than any other.
std::string withoutLinks(std::string_view text, std::string_view opening, std::size_t minimumLabel, bool keepsLabel) {
    std::string out;
    out.reserve(text.size());
    std::size_t copied = 0;
    std::size_t open = text.find(opening);
    while (open != npos) {
        const std::size_t label = open + opening.size();
        const std::size_t close = text.find(']', label);
        if (close == npos) break;
        const bool hasTarget = close + 2 < text.size() && text[close + 1] == '(' && text[close + 2] != ')';
        if (!hasTarget) {
            open = text.find(opening, close); // All openings before `close` share this "]".
            continue;
        }
        if (close - label < minimumLabel) {
            open = text.find(opening, label);
            continue;
        }
        const std::size_t end = text.find(')', close + 2);
        if (end == npos) break; // No later target can end either.
        out.append(text.substr(copied, open - copied));
        if (keepsLabel) out.append(text.substr(label, close - label));
        copied = end + 1;
        open = text.find(opening, copied);
    }
    return out.append(text.substr(copied));
}

std::string withSingleBlanks(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte > ' ' && byte < 0x80) { // Nearly all bytes of nearly all notes.
            out += text[i++];
            continue;
        }
        const std::size_t start = i;
        if (isSpace(nextScalar(text, i))) {
            i = skippedSpace(text, i);
            out += ' ';
        } else {
            out.append(text.substr(start, i - start));
        }
    }
    return out;
}

constexpr struct {
    char32_t first;
    char32_t last;
} unspacedScripts[] = {
    {0x0E00, 0x0EFF},   // Thai, Lao
    {0x1000, 0x109F},   // Burmese
    {0x1780, 0x17FF},   // Khmer
    {0x3005, 0x3007},   // ideographic marks
    {0x3040, 0x312F},   // Hiragana, Katakana, Bopomofo
    {0x31A0, 0x31FF},   // their extensions
    {0x3400, 0x4DBF},   // Han
    {0x4E00, 0x9FFF},   //
    {0xF900, 0xFAFF},   //
    {0xFF66, 0xFF9D},   // half-width Katakana
    {0x20000, 0x3FFFF}, // Han beyond the basic plane
};
} // namespace

std::string NoteText::stripMarkdown(std::string_view text) {
    const std::string plain = withoutStarsAndUnderscores(withoutFirstHeading(text));
    // Links before images, although an image holds a link: that is what leaves "!" and the alternative text.
    const std::string unlinked = withoutLinks(plain, "[", 1, true);
    const std::string line = withSingleBlanks(withoutLinks(unlinked, "![", 0, false));
    return std::string(trimmed(line));
}

bool NoteText::hasUnspacedScript(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        if (static_cast<unsigned char>(text[i]) < 0xE0) { // Two-byte letters end before all these scripts.
            ++i;
            continue;
        }
        const char32_t scalar = nextScalar(text, i);
        for (const auto& [first, last] : unspacedScripts)
            if (scalar >= first && scalar <= last) return true;
    }
    return false;
}
} // namespace snipwren
