#include "context/server/JsonRpc.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "context/server/LineBuffer.h"

namespace snipwren {
namespace {
TEST(JsonRpc, AgreesWithAFullReaderOnWhatIsValid) {
    const std::string texts[] = {"{}",
                                 "[]",
                                 "0",
                                 "-0",
                                 "01",
                                 "-",
                                 "1.",
                                 ".5",
                                 "1.5e+10",
                                 "1e",
                                 "1E-2",
                                 "+1",
                                 "tru",
                                 "true",
                                 "nul",
                                 "null",
                                 "\"",
                                 "\"\\u00e9\"",
                                 "\"\\ud83d\\ude00\"",
                                 "\"\\ud83d\"",
                                 "\"\\ude00\"",
                                 "\"\\ud83dx\"",
                                 "\"\\x\"",
                                 "\"a\tb\"",
                                 "\"\x7F\"",
                                 "\"\xC3\xA9\"",
                                 "\"\xC3\"",
                                 "\"\xED\xA0\x80\"",
                                 "\"\xF0\x9F\x98\x80\"",
                                 "\"\xC0\x80\"",
                                 "[1,]",
                                 "[,1]",
                                 "{\"a\":1,}",
                                 "{\"a\"}",
                                 "{a:1}",
                                 "{\"a\":1 \"b\":2}",
                                 " { \"a\" : [ 1 , { } ] } ",
                                 "[1] 2",
                                 "",
                                 " ",
                                 "[1",
                                 "{\"a\":",
                                 "// c",
                                 "NaN",
                                 "'a'",
                                 "\"\\\"",
                                 "[\"\\\\\"]",
                                 "{\"a\":{\"b\":[null,true,false,\"\"]}}",
                                 std::string("\"\0\"", 3),
                                 "\xEF\xBB\xBF[]x"};
    for (const auto& text : texts) EXPECT_EQ(JsonRpc::isValid(text), nlohmann::json::accept(text)) << text;
    const auto nested = [](int depth) {
        return std::string(static_cast<std::size_t>(depth), '[') + std::string(static_cast<std::size_t>(depth), ']');
    };
    EXPECT_TRUE(JsonRpc::isValid(nested(JsonRpc::maxDepth)));
    EXPECT_FALSE(JsonRpc::isValid(nested(JsonRpc::maxDepth + 1)));
    EXPECT_FALSE(JsonRpc::isValid(std::string(10'000'000, '[')));
}

TEST(JsonRpc, CutsRequestsOutOfTheirLine) {
    const auto request =
        JsonRpc::read(R"( {"x":{"id":1,"method":"no"},"i\u0064":"a\"b", "method":"m\u00e9", "params": {"k":[1]} } )");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->id, R"("a\"b")");
    EXPECT_EQ(request->method, "mé");
    EXPECT_EQ(request->params, R"({"k":[1]})");
    const auto repeated = JsonRpc::read(R"({"method":"a","method":null,"id":1,"id":2})");
    ASSERT_TRUE(repeated);
    EXPECT_EQ(repeated->method, std::nullopt);
    EXPECT_EQ(repeated->id, "2");
    EXPECT_EQ(repeated->params, "{}");
    EXPECT_FALSE(JsonRpc::read(R"([{"method":"a"}])"));
    EXPECT_FALSE(JsonRpc::read(R"({"method":"a"}x)"));
}

TEST(JsonRpc, QuotesAnyText) {
    const std::string text = "a\"\\/\b\f\n\r\t\x01\x1F\x7F é 🚀";
    EXPECT_EQ(nlohmann::json::parse(JsonRpc::quoted(text)), text);
    EXPECT_EQ(JsonRpc::quoted("\xFFz"), "\"\xEF\xBF\xBDz\"");
    EXPECT_EQ(JsonRpc::error("7", -32000, "a\nb"),
              R"({"jsonrpc":"2.0","id":7,"error":{"code":-32000,"message":"a\nb"}})");
}

TEST(LineBuffer, BoundsALineNotAStream) {
    LineBuffer buffer;
    const std::string chunk(1 << 20, 'x');
    for (int i = 0; i < 16; ++i) ASSERT_TRUE(buffer.append(chunk));
    EXPECT_FALSE(buffer.append("x"));
    EXPECT_FALSE(buffer.append("x\n"));
    const auto block = buffer.append("\nnext\nrest");
    ASSERT_TRUE(block);
    EXPECT_EQ(block->size(), LineBuffer::maxLine + 6);
    EXPECT_EQ(buffer.rest(), "rest");
}
} // namespace
} // namespace snipwren
