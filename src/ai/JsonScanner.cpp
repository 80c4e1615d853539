#include "ai/JsonScanner.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/Text.h"

namespace snipwren {
namespace {
bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c) {
    if (isDigit(c)) return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

class Scan {
public:
    Scan(std::string_view text, const JsonScanner::Visitor& visitor)
        : at_(text.data()),
          end_(text.data() + text.size()),
          visitor_(visitor) {}

    bool whole() {
        skipBlanks();
        if (!value()) return false;
        skipBlanks();
        return at_ == end_;
    }

private:
    bool value() {
        if (at_ == end_) return false;
        switch (*at_) {
        case '{': return object();
        case '[': return array();
        case '"': {
            std::string_view raw;
            return string(raw) && leaf(JsonLeaf::Kind::string, raw);
        }
        case 't': return word("true");
        case 'f': return word("false");
        case 'n': return word("null");
        default: return number();
        }
    }

    bool object() {
        if (depth_ == JsonScanner::maxDepth) return false;
        ++at_;
        if (take('}')) return true;
        std::string_view& key = path_[depth_++];
        do {
            skipBlanks();
            if (at_ == end_ || *at_ != '"' || !string(key) || !take(':')) return false;
            skipBlanks();
            if (!value()) return false;
        } while (take(','));
        --depth_;
        return take('}');
    }

    bool array() {
        if (depth_ == JsonScanner::maxDepth) return false;
        ++at_;
        if (take(']')) return true;
        std::string_view& key = path_[depth_++];
        key = "[0]";
        do {
            skipBlanks();
            if (!value()) return false;
            key = "[]";
        } while (take(','));
        --depth_;
        return take(']');
    }

    bool string(std::string_view& raw) {
        const char* const start = ++at_;
        for (; at_ != end_; ++at_) {
            if (*at_ == '"') {
                raw = {start, static_cast<std::size_t>(at_ - start)};
                ++at_;
                return true;
            }
            if (static_cast<unsigned char>(*at_) < 0x20) return false;
            if (*at_ == '\\' && !escape()) return false;
        }
        return false;
    }

    /// Leaves the position on the escape's last character.
    bool escape() {
        if (++at_ == end_) return false;
        if (*at_ != 'u') return std::string_view("\"\\/bfnrt").find(*at_) != std::string_view::npos;
        for (int digit = 0; digit < 4; ++digit)
            if (++at_ == end_ || hexValue(*at_) < 0) return false;
        return true;
    }

    bool number() {
        const char* const start = at_;
        if (at_ != end_ && *at_ == '-') ++at_;
        const char* const whole = at_;
        if (!digits() || (*whole == '0' && at_ - whole > 1)) return false;
        if (at_ != end_ && *at_ == '.') {
            ++at_;
            if (!digits()) return false;
        }
        if (at_ != end_ && (*at_ == 'e' || *at_ == 'E')) {
            ++at_;
            if (at_ != end_ && (*at_ == '+' || *at_ == '-')) ++at_;
            if (!digits()) return false;
        }
        return leaf(JsonLeaf::Kind::number, {start, static_cast<std::size_t>(at_ - start)});
    }

    bool digits() {
        const char* const start = at_;
        while (at_ != end_ && isDigit(*at_)) ++at_;
        return at_ != start;
    }

    bool word(std::string_view literal) {
        if (!std::string_view(at_, static_cast<std::size_t>(end_ - at_)).starts_with(literal)) return false;
        const std::string_view raw(at_, literal.size());
        at_ += literal.size();
        return leaf(JsonLeaf::Kind::literal, raw);
    }

    bool leaf(JsonLeaf::Kind kind, std::string_view raw) {
        visitor_({std::span(path_).first(depth_), kind, raw});
        return true;
    }

    void skipBlanks() {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\t' || *at_ == '\n' || *at_ == '\r')) ++at_;
    }
    bool take(char wanted) {
        skipBlanks();
        if (at_ == end_ || *at_ != wanted) return false;
        ++at_;
        return true;
    }

    const char* at_;
    const char* const end_;
    const JsonScanner::Visitor& visitor_;
    std::array<std::string_view, JsonScanner::maxDepth> path_;
    std::size_t depth_ = 0;
};

char32_t hexUnit(std::string_view digits) {
    unsigned unit = 0;
    for (const char digit : digits) unit = unit * 16 + static_cast<unsigned>(hexValue(digit));
    return unit;
}
} // namespace

bool JsonLeaf::is(std::initializer_list<std::string_view> wanted) const {
    return std::equal(path.begin(), path.end(), wanted.begin(), wanted.end());
}

bool JsonScanner::scan(std::string_view text, const Visitor& visitor) { return Scan(text, visitor).whole(); }

void JsonScanner::appendUnescaped(std::string& to, std::string_view raw) {
    while (!raw.empty()) {
        const std::size_t plain = std::min(raw.find('\\'), raw.size());
        to += raw.substr(0, plain);
        raw.remove_prefix(plain);
        if (raw.empty()) return;
        const char kind = raw[1];
        if (kind != 'u') {
            constexpr std::string_view names = "bfnrt", meanings = "\b\f\n\r\t";
            const std::size_t which = names.find(kind);
            to += which == std::string_view::npos ? kind : meanings[which];
            raw.remove_prefix(2);
            continue;
        }
        char32_t scalar = hexUnit(raw.substr(2, 4));
        raw.remove_prefix(6);
        if (scalar >= 0xD800 && scalar < 0xDC00 && raw.starts_with("\\u")) {
            const char32_t low = hexUnit(raw.substr(2, 4));
            if (low >= 0xDC00 && low < 0xE000) {
                scalar = 0x10000 + ((scalar - 0xD800) << 10) + (low - 0xDC00);
                raw.remove_prefix(6);
            }
        }
        appendUtf8(to, scalar >= 0xD800 && scalar < 0xE000 ? 0xFFFD : scalar);
    }
}
} // namespace snipwren
