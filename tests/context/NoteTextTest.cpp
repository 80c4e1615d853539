#include "context/notes/NoteText.h"

#include <random>

#include <gtest/gtest.h>

#include "base/Regex.h"
#include "base/Text.h"
#include "context/graph/KnowledgeQuery.h"
#include "context/notes/NoteFolderWalk.h"

namespace snipwren {
namespace {
/// The definition of the clean-up: six replacements over the whole text, one after another.
std::string byRegularExpressions(const std::string& text) {
    std::string out = text;
    for (const auto& [pattern, with] : {std::pair{R"(^#+\s+)", ""},
                                        {R"(\*\*|\*)", ""},
                                        {R"(__|_)", ""},
                                        {R"(\[([^\]]+)\]\([^\)]+\))", "$1"},
                                        {R"(!\[([^\]]*)\]\([^\)]+\))", ""},
                                        {R"(\s+)", " "}})
        out = Regex::compile(pattern, Regex::Case::sensitive, 5000)->replacingAll(out, with).value();
    return std::string(trimmed(out));
}

TEST(NoteText, StripsMarkdownWithItsIntendedQuirks) {
    const std::pair<const char*, const char*> cases[] = {
        {"# Title\n\n## Second\ntext", "Title ## Second text"}, // Only the first heading loses its hashes.
        {" # not at the start", "# not at the start"},
        {"#tag", "#tag"},
        {"snake_case and **bold** *it*", "snakecase and bold it"},
        {"![](pic.png) after", "after"},
        {"![alt](pic.png)", "!alt"},
        {"[text](url) [open] (no)", "text [open] (no)"},
        {"[a\nb](c\nd)", "a b"},
        {"![[x](y)](z) end", "end"}, // The inner link goes first; what is left is an image.
        {"[](x) [y](", "[](x) [y]("},
        {"\t\xC2\xA0 one \r\n\xE3\x80\x80two \n", "one two"},
        {"", ""},
        {"***___", ""},
    };
    for (const auto& [text, want] : cases) {
        EXPECT_EQ(NoteText::stripMarkdown(text), want) << text;
        EXPECT_EQ(byRegularExpressions(text), want) << text;
    }
}

TEST(NoteText, AgreesWithTheRegularExpressionsOnRandomMarkup) {
    std::mt19937 random(7); // NOLINT(cert-msc51-cpp): the same texts every time.
    const char* const pieces[] = {
        "[", "]", "(", ")", "!", "#", "*", "_", " ", "\n", "a", "ß", "\xE2\x80\x8B", "\xE3\x80\x80", "](", "!["};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (auto length = random() % 24; length > 0; --length) text += pieces[random() % std::size(pieces)];
        ASSERT_EQ(NoteText::stripMarkdown(text), byRegularExpressions(text)) << text;
    }
}

TEST(NoteText, KnowsScriptsWithoutBlanksBetweenWords) {
    for (const char* text : {"明日の会議", "カタカナ", "ｶﾅ", "ภาษาไทย", "ພາສາລາວ", "ខ្មែរ", "မြန်မာ", "a 𠀀"})
        EXPECT_TRUE(NoteText::hasUnspacedScript(text)) << text;
    for (const char* text : {"plain", "naïve Ünïcode", "Ελληνικά", "русский", "한국어 문장", "emoji 🎯 — “quotes”"})
        EXPECT_FALSE(NoteText::hasUnspacedScript(text)) << text;
}

TEST(KnowledgeQuery, LetsNoSyntaxThrough) {
    const std::pair<const char*, const char*> cases[] = {
        {"deploy the cluster", "deploy* the* cluster*"},
        {"a - b ' c", ""},
        {"title:secret OR \"x y\" NEAR(ab cd)", "title* secret* or* NEAR* ab* cd*"},
        {"AND NOT OR and", "and* not* or* and*"},
        {"don't C++20", "don* 20*"},
        {"e\xCC\x81 \xC3\xA9tude", "\xC3\xA9tude*"}, // A letter with its mark is one character.
        {"wie gehts dir\0; DROP", "wie* gehts* dir*"},
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(KnowledgeQuery::cleanFTSQuery(text), want) << text;
    EXPECT_EQ(KnowledgeQuery::wordCount(" one\ttwo\n\xE3\x80\x80three "), 3u);
}

TEST(NoteFolderWalk, TellsNotesByTheirExtension) {
    for (const char* name : {"note.MD", "a.markdown", "b.txt", "c.Org", "v1.2.md"})
        EXPECT_TRUE(NoteFolderWalk::isNote(name)) << name;
    for (const char* name : {"note.rtf", "md", ".md", "note.md.bak", "note."})
        EXPECT_FALSE(NoteFolderWalk::isNote(name)) << name;
}
} // namespace
} // namespace snipwren
