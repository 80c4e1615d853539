#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace snipwren {
/// What routing needs of one JSON-RPC request, as views into its line: no tree is built for it.
struct JsonRpcRequest {
    /// The id's JSON text exactly as it came, so that it goes back unchanged; "null" when there is none.
    std::string_view id = "null";
    /// None when missing or not a text.
    std::optional<std::string> method;
    /// The JSON text of `params`; an empty object when missing.
    std::string_view params = "{}";
};

/// Error codes of the protocol.
namespace jsonRpcCode {
inline constexpr int parseError = -32700;
inline constexpr int invalidRequest = -32600;
inline constexpr int methodNotFound = -32601;
inline constexpr int invalidParams = -32602;
inline constexpr int failed = -32000;
} // namespace jsonRpcCode

/// Reads requests from lines and writes responses. The whole line is checked, so a value cut out of it is valid JSON.
class JsonRpc {
public:
    JsonRpc() = delete;
    /// Deeper nesting is refused: nothing we talk about needs it, and tree walkers recurse.
    static constexpr int maxDepth = 128;

    /// True for one valid JSON value with nothing but white space around it.
    static bool isValid(std::string_view text);
    /// None when the line is not one valid JSON object.
    static std::optional<JsonRpcRequest> read(std::string_view line);
    /// A whole response without a line feed; `id` and `result` are JSON texts.
    static std::string result(std::string_view id, std::string_view result);
    static std::string error(std::string_view id, int code, std::string_view message);
    static std::string notification(std::string_view method, std::string_view params);
    /// Appends the text as a JSON string. Invalid UTF-8 becomes U+FFFD.
    static void appendQuoted(std::string& out, std::string_view text);
    static std::string quoted(std::string_view text);
};
} // namespace snipwren
