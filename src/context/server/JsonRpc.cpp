#include "context/server/JsonRpc.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace snipwren {
namespace {
/// Walks over JSON text and checks its grammar on the way. Every function answers false at the first fault.
class Scanner {
public:
    explicit Scanner(std::string_view text) : text_(text) {}

    std::size_t position() const { return at_; }
    bool atEnd() const { return at_ == text_.size(); }
    void skipSpace() {
        while (at_ < text_.size()
               && (text_[at_] == ' ' || text_[at_] == '\t' || text_[at_] == '\n' || text_[at_] == '\r'))
            ++at_;
    }
    bool take(char expected) {
        if (at_ >= text_.size() || text_[at_] != expected) return false;
        ++at_;
        return true;
    }

    /// A string, quotes included.
    bool string() {
        if (!take('"')) return false;
        while (at_ < text_.size()) {
            const auto c = static_cast<unsigned char>(text_[at_++]);
            if (c == '"') return true;
            if (c < 0x20) return false;
            if (c == '\\' && !escape()) return false;
        }
        return false;
    }

    bool value(int depth = 0) {
        if (at_ >= text_.size()) return false;
        switch (text_[at_]) {
        case '{': return depth < JsonRpc::maxDepth && members(depth);
        case '[': return depth < JsonRpc::maxDepth && elements(depth);
        case '"': return string();
        case 't': return word("true");
        case 'f': return word("false");
        case 'n': return word("null");
        default: return number();
        }
    }

private:
    bool word(std::string_view expected) {
        if (text_.substr(at_, expected.size()) != expected) return false;
        at_ += expected.size();
        return true;
    }

    std::optional<unsigned> hexadecimal() {
        if (text_.size() - at_ < 4) return std::nullopt;
        unsigned code = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[at_++];
            const bool letter = (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            if (!letter && (c < '0' || c > '9')) return std::nullopt;
            code = code * 16 + static_cast<unsigned>(letter ? (c | 0x20) - 'a' + 10 : c - '0');
        }
        return code;
    }

    bool escape() {
        if (at_ >= text_.size()) return false;
        const char c = text_[at_++];
        if (c != 'u') return std::string_view("\"\\/bfnrt").find(c) != std::string_view::npos;
        const auto first = hexadecimal();
        if (!first || (*first >= 0xDC00 && *first <= 0xDFFF)) return false;
        if (*first < 0xD800 || *first > 0xDBFF) return true;
        if (!take('\\') || !take('u')) return false;
        const auto second = hexadecimal();
        return second && *second >= 0xDC00 && *second <= 0xDFFF;
    }

    bool digits() {
        const std::size_t start = at_;
        while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
        return at_ > start;
    }

    bool number() {
        take('-');
        if (!take('0') && !digits()) return false;
        if (take('.') && !digits()) return false;
        if (take('e') || take('E')) {
            if (!take('+')) take('-');
            return digits();
        }
        return true;
    }

    bool elements(int depth) {
        take('[');
        skipSpace();
        if (take(']')) return true;
        while (true) {
            skipSpace();
            if (!value(depth + 1)) return false;
            skipSpace();
            if (take(']')) return true;
            if (!take(',')) return false;
        }
    }

    bool members(int depth) {
        take('{');
        skipSpace();
        if (take('}')) return true;
        while (true) {
            skipSpace();
            if (!string()) return false;
            skipSpace();
            if (!take(':')) return false;
            skipSpace();
            if (!value(depth + 1)) return false;
            skipSpace();
            if (take('}')) return true;
            if (!take(',')) return false;
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

bool isAscii(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

bool hasValidBytes(std::string_view text) { return isAscii(text) || isValidUtf8(text); }

/// The text of a checked string literal.
std::string unquoted(std::string_view literal) {
    if (literal.find('\\') == std::string_view::npos) return std::string(literal.substr(1, literal.size() - 2));
    return nlohmann::json::parse(literal).get<std::string>();
}
} // namespace

bool JsonRpc::isValid(std::string_view text) {
    if (!hasValidBytes(text)) return false;
    Scanner scan(text);
    scan.skipSpace();
    if (!scan.value()) return false;
    scan.skipSpace();
    return scan.atEnd();
}

std::optional<JsonRpcRequest> JsonRpc::read(std::string_view line) {
    if (!hasValidBytes(line)) return std::nullopt;
    JsonRpcRequest request;
    Scanner scan(line);
    scan.skipSpace();
    if (!scan.take('{')) return std::nullopt;
    scan.skipSpace();
    bool more = !scan.take('}');
    while (more) {
        scan.skipSpace();
        const std::size_t keyStart = scan.position();
        if (!scan.string()) return std::nullopt;
        const std::string key = unquoted(line.substr(keyStart, scan.position() - keyStart));
        scan.skipSpace();
        if (!scan.take(':')) return std::nullopt;
        scan.skipSpace();
        const std::size_t start = scan.position();
        if (!scan.value(1)) return std::nullopt;
        const std::string_view value = line.substr(start, scan.position() - start);
        // Of a repeated key the last one counts, as in most readers of JSON.
        if (key == "id") request.id = value;
        if (key == "params") request.params = value;
        if (key == "method") request.method = value.front() == '"' ? std::optional(unquoted(value)) : std::nullopt;
        scan.skipSpace();
        if (scan.take('}')) {
            more = false;
        } else if (!scan.take(',')) {
            return std::nullopt;
        }
    }
    scan.skipSpace();
    if (!scan.atEnd()) return std::nullopt;
    return request;
}

std::string JsonRpc::result(std::string_view id, std::string_view result) {
    std::string out;
    out.reserve(id.size() + result.size() + 40);
    out.append(R"({"jsonrpc":"2.0","id":)").append(id).append(R"(,"result":)").append(result).append("}");
    return out;
}

std::string JsonRpc::error(std::string_view id, int code, std::string_view message) {
    std::string out(R"({"jsonrpc":"2.0","id":)");
    out.append(id).append(R"(,"error":{"code":)").append(std::to_string(code)).append(R"(,"message":)");
    appendQuoted(out, message);
    out.append("}}");
    return out;
}

std::string JsonRpc::notification(std::string_view method, std::string_view params) {
    std::string out(R"({"jsonrpc":"2.0","method":)");
    appendQuoted(out, method);
    out.append(R"(,"params":)").append(params).append("}");
    return out;
}

void JsonRpc::appendQuoted(std::string& out, std::string_view text) {
    if (!hasValidBytes(text)) return appendQuoted(out, sanitizedUtf8(text));
    static constexpr char digits[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += digits[c >> 4];
                out += digits[c & 15];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

std::string JsonRpc::quoted(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    appendQuoted(out, text);
    return out;
}
} // namespace snipwren
