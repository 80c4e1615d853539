#pragma once

#include <string>
#include <string_view>

namespace snipwren {
/// One tool offered to AI clients.
struct McpTool {
    std::string_view name;
    /// The context server's method that it calls; empty for the one that captures.
    std::string_view method;
    /// The whole tool object as clients list it.
    std::string_view json;
};

/// The tools of `snipwren mcp`.
class McpTools {
public:
    McpTools() = delete;
    static constexpr std::string_view captureName = "snipwren_capture";
    /// Null for an unknown name.
    static const McpTool* find(std::string_view name);
    /// The JSON list of all tools.
    static std::string listJson();
};
} // namespace snipwren
