#include "scheduler/ScheduledItem.h"

#include <algorithm>
#include <bit>
#include <charconv>

#include "base/Text.h"

namespace snipwren {
namespace {
/// Changes with the layout, so that programs of two versions refuse each other's bytes instead of misreading them.
constexpr std::uint64_t layout = 1;

class Writer {
public:
    explicit Writer(std::string& bytes) : bytes_(bytes) {}
    void number(std::uint64_t value) {
        char digits[20];
        const auto [end, code] = std::to_chars(digits, digits + sizeof digits, value);
        bytes_.append(digits, end);
        bytes_ += ' ';
    }
    void text(std::string_view value) {
        number(value.size());
        bytes_ += value;
    }

private:
    std::string& bytes_;
};

class Reader {
public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}
    bool failed() const { return failed_; }
    bool atEnd() const { return bytes_.empty(); }

    std::uint64_t number() {
        std::uint64_t value = 0;
        const auto [end, code] = std::from_chars(bytes_.data(), bytes_.data() + bytes_.size(), value);
        const auto length = static_cast<std::size_t>(end - bytes_.data());
        const bool isOne = code == std::errc() && length < bytes_.size() && *end == ' ';
        // A number has one spelling, so that an item has one, too.
        if (!isOne || (length > 1 && bytes_.front() == '0')) return fail();
        bytes_.remove_prefix(length + 1);
        return value;
    }
    std::string text() {
        const std::uint64_t size = number();
        if (failed_ || size > bytes_.size()) {
            fail();
            return {};
        }
        std::string value(bytes_.substr(0, size));
        bytes_.remove_prefix(size);
        // Most texts are plain; only the others need the careful look.
        const bool isPlain = std::all_of(value.begin(), value.end(), [](char c) { return c > 0; });
        if (!isPlain && (value.find('\0') != std::string::npos || !isValidUtf8(value))) fail();
        return value;
    }
    /// Of things that take at least one byte each, so that a false count cannot ask for memory.
    std::uint64_t count() {
        const std::uint64_t value = number();
        return value > bytes_.size() ? fail() : value;
    }
    std::uint64_t fail() {
        failed_ = true;
        bytes_ = {};
        return 0;
    }

private:
    std::string_view bytes_;
    bool failed_ = false;
};

void write(Writer& out, const ScheduledItem& item) {
    for (const std::string* text : {&item.id, &item.category, &item.title, &item.subtitle, &item.body}) out.text(*text);
    out.number(item.hasSound ? 1 : 0);
    out.number(static_cast<std::uint64_t>(item.kind));
    out.number(static_cast<std::uint64_t>(item.interval.count()));
    out.number(static_cast<std::uint64_t>(item.fireAt.time_since_epoch().count()));
    out.number(item.userInfo.size());
    for (const auto& [key, value] : item.userInfo) {
        out.text(key);
        out.number(std::bit_cast<std::uint64_t>(value));
    }
    out.number(item.actions.size());
    for (const auto& [id, title] : item.actions) {
        out.text(id);
        out.text(title);
    }
}

ScheduledItem read(Reader& in) {
    ScheduledItem item;
    for (std::string* text : {&item.id, &item.category, &item.title, &item.subtitle, &item.body}) *text = in.text();
    const std::uint64_t sound = in.number();
    if (sound > 1) in.fail();
    item.hasSound = sound == 1;
    const std::uint64_t kind = in.number();
    if (kind > static_cast<std::uint64_t>(ScheduledItem::Kind::moment)) in.fail();
    item.kind = static_cast<ScheduledItem::Kind>(kind);
    item.interval = Duration(static_cast<std::int64_t>(in.number()));
    item.fireAt = TimePoint(Duration(static_cast<std::int64_t>(in.number())));
    for (std::uint64_t left = in.count(); left > 0 && !in.failed(); --left) {
        std::string key = in.text();
        item.userInfo[std::move(key)] = std::bit_cast<double>(in.number());
    }
    for (std::uint64_t left = in.count(); left > 0 && !in.failed(); --left) {
        std::string id = in.text();
        item.actions.emplace_back(std::move(id), in.text());
    }
    return item;
}
} // namespace

std::string ScheduledItemCodec::encode(const std::vector<ScheduledItem>& items) {
    std::string bytes;
    bytes.reserve(16 + items.size() * 256);
    Writer out(bytes);
    out.number(layout);
    out.number(items.size());
    for (const ScheduledItem& item : items) write(out, item);
    return bytes;
}

std::string ScheduledItemCodec::encode(const ScheduledItem& item) {
    std::string bytes;
    Writer out(bytes);
    out.number(layout);
    out.number(1);
    write(out, item);
    return bytes;
}

bool ScheduledItemCodec::decodeEach(std::string_view bytes, const std::function<void(ScheduledItem&&)>& take) {
    Reader in(bytes);
    if (in.number() != layout) return false;
    for (std::uint64_t left = in.count(); left > 0; --left) {
        ScheduledItem item = read(in);
        if (in.failed()) return false;
        take(std::move(item));
    }
    return !in.failed() && in.atEnd();
}

std::optional<std::vector<ScheduledItem>> ScheduledItemCodec::decodeList(std::string_view bytes) {
    std::vector<ScheduledItem> items;
    if (!decodeEach(bytes, [&](ScheduledItem&& item) { items.push_back(std::move(item)); })) return std::nullopt;
    return items;
}

std::optional<ScheduledItem> ScheduledItemCodec::decode(std::string_view bytes) {
    auto items = decodeList(bytes);
    if (!items || items->size() != 1) return std::nullopt;
    return std::move(items->front());
}
} // namespace snipwren
