#pragma once

#include <string>
#include <string_view>

namespace snipwren {
/// What the index makes of a note's text. Stateless; every function takes time linear in the text.
class NoteText {
public:
    NoteText() = delete;

    /// The text as one line without Markdown marks. A heading loses its hashes only at the very start, every underscore
    /// goes, and an image with alternative text leaves "!" and that text: users' saved searches count on it.
    static std::string stripMarkdown(std::string_view text);
    /// True when the text holds letters of a script that is written without blanks between words (Chinese, Japanese,
    /// Thai, Lao, Khmer, Burmese), which a word index cannot find the words of.
    static bool hasUnspacedScript(std::string_view text);
};
} // namespace snipwren
