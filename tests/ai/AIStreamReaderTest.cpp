#include "ai/AIStreamReader.h"

#include <gtest/gtest.h>

#include "ai/JsonScanner.h"
#include "base/Text.h"

namespace snipwren {
namespace {
using Format = AIStreamReader::Format;

struct Outcome {
    std::string shown, answer, error;
    bool cutOff = false;
};

/// Feeds the stream in pieces of one size.
Outcome read(Format format, std::string_view stream, std::size_t pieceBytes) {
    Outcome outcome;
    AIStreamReader reader(format, [&](std::string_view text) {
        EXPECT_TRUE(isValidUtf8(text)) << "half a character was shown";
        outcome.shown += text;
    });
    for (std::size_t at = 0; at < stream.size(); at += pieceBytes)
        if (!reader.feed(stream.substr(at, pieceBytes))) break;
    if (auto answer = reader.finish()) {
        outcome.answer = answer->text;
        outcome.cutOff = answer->isCutOff;
    } else {
        outcome.error = answer.error().description;
    }
    return outcome;
}

const char openAI[] = "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\"},\"finish_reason\":null}]}\r\n\r\n"
                      ": keep-alive\n"
                      "data: {\"choices\":[{\"delta\":{\"content\":\"Grüße, \"}}]}\n\n"
                      "data:{\"choices\":[{\"index\":0,\"delta\":{\"content\":\"\\ud83d\\ude00 \\\"ok\\\"\\n\"}}]}\n\n"
                      "data: {\"choices\":[{\"delta\":{\"content\":null},\"finish_reason\":\"stop\"}]}\n\n"
                      "data: [DONE]\n\ndata: {\"choices\":[{\"delta\":{\"content\":\"ignored\"}}]}\n";
const char anthropic[] =
    "event: message_start\ndata: "
    "{\"type\":\"message_start\",\"message\":{\"content\":[],\"usage\":{\"input_tokens\":9}}}\n\n"
    "event: content_block_start\ndata: "
    "{\"type\":\"content_block_start\",\"index\":0,\"content_block\":{\"type\":\"text\",\"text\":\"\"}}\n\n"
    "event: content_block_delta\ndata: "
    "{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"thinking_delta\",\"thinking\":\"hm\"}}\n\n"
    "event: ping\ndata: {\"type\": \"ping\"}\n\n"
    "event: content_block_delta\ndata: "
    "{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"Grüße, \"}}\n\n"
    "event: content_block_delta\ndata: "
    "{\"type\":\"content_block_delta\",\"delta\":{\"type\":\"text_delta\",\"text\":\"\\ud83d\\ude00 "
    "\\\"ok\\\"\\n\"}}\n\n"
    "event: message_delta\ndata: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":\"end_turn\"}}\n\n"
    "event: message_stop\ndata: {\"type\":\"message_stop\"}\n\n";
const char ollama[] =
    "{\"model\":\"llama3\",\"message\":{\"role\":\"assistant\",\"content\":\"Grüße, \"},\"done\":false}\n"
    "\n{\"message\":{\"content\":\"\\ud83d\\ude00 \\\"ok\\\"\"},\"done\":false}\r\n"
    "{\"message\":{\"content\":\"\\n\"},\"done\":true,\"done_reason\":\"stop\"}";

TEST(AIStreamReader, ReadsEveryFormatHoweverItIsCut) {
    const std::pair<Format, std::string_view> streams[] = {
        {Format::openAIEvents, openAI}, {Format::anthropicEvents, anthropic}, {Format::ollamaLines, ollama}};
    for (const auto& [format, stream] : streams) {
        for (std::size_t piece = 1; piece <= stream.size(); ++piece) {
            const Outcome outcome = read(format, stream, piece);
            ASSERT_EQ(outcome.error, "") << "in pieces of " << piece;
            ASSERT_EQ(outcome.answer, "Grüße, 😀 \"ok\"\n") << "in pieces of " << piece;
            ASSERT_EQ(outcome.shown, outcome.answer) << "in pieces of " << piece;
        }
    }
}

TEST(AIStreamReader, JoinsCharactersThatAServerCutInTwo) {
    const auto line = [](std::string_view content) {
        return "{\"message\":{\"content\":\"" + std::string(content) + "\"},\"done\":false}\n";
    };
    const std::string end = "{\"done\":true}\n";
    const std::string smile = "\xF0\x9F\x98\x80";
    EXPECT_EQ(
        read(Format::ollamaLines, line(smile.substr(0, 1)) + line(smile.substr(1, 2)) + line(smile.substr(3)) + end, 7)
            .answer,
        smile);
    EXPECT_EQ(read(Format::ollamaLines,
                   line("a\xFF"
                        "b\xE2\x82")
                       + end,
                   100)
                  .answer,
              "a\uFFFDb\uFFFD\uFFFD");
    EXPECT_EQ(read(Format::ollamaLines, line("\\ud83d!") + end, 100).answer, "\uFFFD!");
}

TEST(AIStreamReader, TakesAnAnswerOnlyWhenItsEndWasSeen) {
    const std::string piece = "data: {\"choices\":[{\"delta\":{\"content\":\"half\"}}]}\n";
    EXPECT_EQ(read(Format::openAIEvents, piece, 5).error, "The answer broke off before its end. Try again.");
    EXPECT_EQ(read(Format::openAIEvents, "", 5).error, "The answer broke off before its end. Try again.");
    const std::string finish = "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"length\"}]}";
    const Outcome cut = read(Format::openAIEvents, piece + finish, 5); // No [DONE], not even a last line feed.
    EXPECT_EQ(cut.answer, "half");
    EXPECT_TRUE(cut.cutOff);
}

TEST(AIStreamReader, NamesFaults) {
    const std::tuple<Format, std::string, const char*> rows[] = {
        {Format::openAIEvents, "data: {\"choices\":\n", "Failed to parse response JSON."},
        {Format::openAIEvents, "data: <html>\n", "Failed to parse response JSON."},
        {Format::ollamaLines, "<html>\n", "Failed to parse Ollama response."},
        {Format::ollamaLines, "{\"error\":\"out of memory\"}\n", "The service reported an error: out of memory"},
        {Format::anthropicEvents,
         "data: {\"type\":\"error\",\"error\":{\"type\":\"x\",\"message\":\"Over\\nloaded\"}}\n",
         "The service reported an error: Over\nloaded"},
        {Format::ollamaLines, std::string(AIStreamReader::maxLineBytes + 1, ' '),
         "The answer held a line that was too long."},
    };
    for (const auto& [format, stream, want] : rows) EXPECT_EQ(read(format, stream, 1000).error, want);

    AIStreamReader endless(Format::ollamaLines, {});
    const std::string line = "{\"message\":{\"content\":\"" + std::string(500'000, 'x') + "\"}}\n";
    int lines = 0;
    while (endless.feed(line) && lines < 100) ++lines;
    EXPECT_EQ(lines, 8);
    EXPECT_EQ(endless.finish().error().description, "The answer was larger than allowed.");
}

TEST(JsonScanner, AcceptsJsonOnly) {
    for (const char* good : {"{}", "[]", " [1, -0.5e+3 ,true,null,{\"a\":[{}]}] ", "\"x\\u00e9\\\\\"", "0", "false"})
        EXPECT_TRUE(JsonScanner::scan(good, [](const JsonLeaf&) {})) << good;
    for (const char* bad : {"",   "{",    "{]",  "[1,]",  "{\"a\":1,}", "{\"a\" 1}",   "{a:1}",
                            "01", "-",    "1.",  "1e",    "\"\\x\"",    "\"\\u12g4\"", "\"a\nb\"",
                            "\"", "\"\\", "tru", "{} {}", "[1 2]",      "nullx",       "\"\\u12"})
        EXPECT_FALSE(JsonScanner::scan(bad, [](const JsonLeaf&) {})) << bad;
    EXPECT_FALSE(JsonScanner::scan(std::string(100'000, '['), [](const JsonLeaf&) {}));
}
} // namespace
} // namespace snipwren
