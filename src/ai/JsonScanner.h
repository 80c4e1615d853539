#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace snipwren {
/// One value inside a JSON text that is neither an object nor an array.
struct JsonLeaf {
    enum class Kind { string, number, literal };
    /// The keys from the outermost object inwards, as written; "[0]" for the first element of an array, "[]" for others.
    std::span<const std::string_view> path;
    Kind kind = Kind::literal;
    /// As written; a string without its quotes and still escaped.
    std::string_view raw;

    bool is(std::initializer_list<std::string_view> wanted) const;
};

/// Walks a JSON text without building it up: streamed answers are one tiny object per token, and what matters in each is
/// one string. Bytes that are not valid UTF-8 pass through strings unchanged, because some servers cut characters in two.
class JsonScanner {
public:
    JsonScanner() = delete;
    static constexpr std::size_t maxDepth = 32;

    using Visitor = std::function<void(const JsonLeaf&)>;
    /// Calls the visitor for each leaf, in order; false when the text is not one whole JSON value. What was visited
    /// before a fault was found is then not to be trusted.
    static bool scan(std::string_view text, const Visitor& visitor);
    /// Appends what an escaped string stands for. A lone surrogate becomes U+FFFD.
    static void appendUnescaped(std::string& to, std::string_view raw);
};
} // namespace snipwren
