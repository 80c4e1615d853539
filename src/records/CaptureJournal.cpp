#include "records/CaptureJournal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include <zlib.h>

#include "base/Log.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/Text.h"

namespace snipwren {
enum class CaptureJournal::Kind : std::uint8_t {
    typed = 1, // target, text
    confirmed, // target, text, option's id, option's name
    attempted, // note
    delivered, // receipt, undo
    failed,    // error
    cancelled, // target, text
    undone,
    recorded,
    adopted,
};

/// One line of a capture's life. In the file: the marker, the payload's length and checksum (four bytes each, little
/// endian), and the payload: kind, session, microseconds, then the identifier and the fields, each with its length.
struct CaptureJournal::Record {
    Kind kind = Kind::typed;
    std::uint64_t session = 0;
    std::int64_t at = 0;
    std::string_view id;
    std::vector<std::string_view> fields;
};

struct CaptureJournal::Contents {
    std::vector<Entry> entries;
    /// Bytes that are no records.
    std::string damaged;
};

namespace {
constexpr std::string_view marker = "SWJ1";
constexpr std::size_t headSize = 12;

void putNumber(std::string& bytes, std::uint64_t number, int size) {
    for (int i = 0; i < size; ++i) bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
}

void putText(std::string& bytes, std::string_view text) {
    putNumber(bytes, text.size(), 4);
    bytes += text;
}

/// Reads what the functions above wrote; `ok` is false once there was less.
class Reader {
public:
    explicit Reader(std::string_view bytes) : rest_(bytes) {}
    std::uint64_t number(std::size_t size) {
        std::uint64_t value = 0;
        if (rest_.size() < size) return fail();
        for (std::size_t i = 0; i < size; ++i)
            value |= static_cast<std::uint64_t>(static_cast<unsigned char>(rest_[i])) << (8 * i);
        rest_.remove_prefix(size);
        return value;
    }
    std::string_view text() {
        const std::uint64_t size = number(4);
        if (size > rest_.size()) fail();
        const std::string_view value = rest_.substr(0, size);
        rest_.remove_prefix(value.size());
        return value;
    }
    bool isAtEnd() const { return rest_.empty(); }
    bool ok = true;

private:
    std::uint64_t fail() {
        ok = false;
        rest_ = {};
        return 0;
    }
    std::string_view rest_;
};

std::uint32_t checksum(std::string_view bytes) {
    return static_cast<std::uint32_t>(::crc32_z(0, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()));
}

std::int64_t microseconds(TimePoint moment) { return moment.time_since_epoch().count(); }
} // namespace

CaptureJournal::CaptureJournal(Dependencies dependencies) : to_(std::move(dependencies)) {}
CaptureJournal::~CaptureJournal() = default;

std::string CaptureJournal::path() const { return joinedPath(to_.paths.applicationSupport, fileName); }

std::string CaptureJournal::newId() { return asciiLowercased(to_.random.uuid()); }

FileIO::Answer<void> CaptureJournal::open() {
    if (auto made = to_.files.createFolders(to_.paths.applicationSupport, privateFolderMode); !made) return made;
    std::uint64_t number = 0;
    const std::string random = to_.random.bytes(sizeof number);
    std::memcpy(&number, random.data(), std::min(random.size(), sizeof number));
    session_ = std::make_unique<ProgramSession>(path() + ".programs", number);
    return compact();
}

std::string CaptureJournal::encoded(const Record& record) const {
    std::string payload;
    putNumber(payload, static_cast<std::uint64_t>(record.kind), 1);
    putNumber(payload, record.session, 8);
    putNumber(payload, static_cast<std::uint64_t>(record.at), 8);
    putText(payload, record.id);
    for (const std::string_view field : record.fields) putText(payload, field);
    std::string bytes(marker);
    putNumber(bytes, payload.size(), 4);
    putNumber(bytes, checksum(payload), 4);
    return bytes += payload;
}

CaptureJournal::Contents CaptureJournal::decoded(std::string_view bytes) {
    Contents contents;
    std::map<std::string, std::size_t, std::less<>> places;
    const auto apply = [&](const Record& record) {
        const auto found = places.find(record.id);
        const bool isNew = found == places.end();
        // Of a capture that was dropped when the file was written anew a late word may still come.
        const bool begins =
            record.kind == Kind::typed || record.kind == Kind::confirmed || record.kind == Kind::cancelled;
        if (isNew && !begins) return;
        if (isNew) {
            places.emplace(record.id, contents.entries.size());
            contents.entries.emplace_back().id = record.id;
        }
        Entry& entry = isNew ? contents.entries.back() : contents.entries[found->second];
        const auto field = [&](std::size_t index) {
            return index < record.fields.size() ? std::string(record.fields[index]) : std::string();
        };
        const TimePoint at{Duration(record.at)};
        switch (record.kind) {
        case Kind::typed:
        case Kind::cancelled:
            // A text that was written late is older than the Return.
            if (entry.state != State::typing) break;
            entry.target = field(0);
            entry.text = field(1);
            entry.at = at;
            entry.session = record.session;
            if (record.kind == Kind::cancelled) entry.state = State::cancelled;
            break;
        case Kind::confirmed:
            entry.target = field(0);
            entry.text = field(1);
            entry.optionId = field(2);
            entry.optionName = field(3);
            entry.at = at;
            entry.session = record.session;
            entry.state = State::confirmed;
            break;
        case Kind::attempted:
            entry.note = field(0);
            entry.state = State::attempted;
            break;
        case Kind::delivered:
            entry.receipt = field(0);
            entry.undo = field(1);
            entry.state = State::delivered;
            break;
        case Kind::failed:
            entry.error = field(0);
            // Told as failed after its time, it may have arrived all the same.
            if (entry.state != State::delivered) entry.state = State::failed;
            break;
        case Kind::undone: entry.state = State::undone; break;
        case Kind::recorded: entry.isRecorded = true; break;
        case Kind::adopted: entry.session = record.session; break;
        }
    };
    while (!bytes.empty()) {
        Reader head(bytes.substr(0, headSize));
        const bool marked = bytes.substr(0, marker.size()) == marker;
        head.number(marker.size());
        const std::uint64_t size = head.number(4);
        const std::uint64_t sum = head.number(4);
        if (marked && head.ok && size <= maxRecord && size <= bytes.size() - headSize) {
            const std::string_view payload = bytes.substr(headSize, size);
            if (checksum(payload) == sum) {
                Reader reader(payload);
                Record record;
                record.kind = static_cast<Kind>(reader.number(1));
                record.session = reader.number(8);
                record.at = static_cast<std::int64_t>(reader.number(8));
                record.id = reader.text();
                while (reader.ok && !reader.isAtEnd()) record.fields.push_back(reader.text());
                const bool known = record.kind >= Kind::typed && record.kind <= Kind::adopted;
                if (reader.ok && known && !record.id.empty()) apply(record);
                bytes.remove_prefix(headSize + size);
                continue;
            }
        }
        // What a killed program, or the disk, left half-done; whole records may follow.
        const std::size_t next = bytes.find(marker, 1);
        contents.damaged += bytes.substr(0, next);
        bytes.remove_prefix(std::min(next, bytes.size()));
    }
    return contents;
}

FileIO::Answer<void> CaptureJournal::append(Kind kind, const std::string& id, TimePoint at,
                                            std::vector<std::string_view> fields, bool durable) {
    const std::string bytes = encoded({.kind = kind,
                                       .session = session_ ? session_->number() : 0,
                                       .at = microseconds(at),
                                       .id = id,
                                       .fields = std::move(fields)});
    if (bytes.size() > maxRecord) return unexpected(FileError::from("write to", path(), EFBIG));
    const FileIO::AppendOptions options{.mode = privateFileMode, .durable = durable};
    auto written = to_.files.append(path(), bytes, options);
    const bool isFull = !written && (written.error().code == ENOSPC || written.error().code == EDQUOT);
    if (isFull && to_.makeRoom && to_.makeRoom()) written = to_.files.append(path(), bytes, options);
    if (!written) return written;
    if ((grown_ += bytes.size()) > compactAfter) (void)compact();
    return {};
}

FileIO::Answer<void> CaptureJournal::typed(const std::string& id, const std::string& target, const std::string& text) {
    return append(Kind::typed, id, now(), {target, text});
}

FileIO::Answer<void> CaptureJournal::confirmed(const Entry& capture) {
    return append(Kind::confirmed, capture.id, capture.at,
                  {capture.target, capture.text, capture.optionId, capture.optionName}, true);
}

FileIO::Answer<void> CaptureJournal::attempted(const std::string& id, const std::string& note) {
    return append(Kind::attempted, id, now(), {note}, true);
}

FileIO::Answer<void> CaptureJournal::delivered(const std::string& id, const std::string& receipt,
                                               const std::string& undo) {
    return append(Kind::delivered, id, now(), {receipt, undo});
}

FileIO::Answer<void> CaptureJournal::failed(const std::string& id, const std::string& error) {
    return append(Kind::failed, id, now(), {error});
}

FileIO::Answer<void> CaptureJournal::cancelled(const std::string& id, const std::string& target,
                                               const std::string& text) {
    return append(Kind::cancelled, id, now(), {target, text});
}

FileIO::Answer<void> CaptureJournal::undone(const std::string& id) { return append(Kind::undone, id, now(), {}); }

FileIO::Answer<void> CaptureJournal::recorded(const std::string& id) { return append(Kind::recorded, id, now(), {}); }

FileIO::Answer<std::vector<CaptureJournal::Entry>> CaptureJournal::entries() const {
    const auto bytes = to_.files.read(path());
    if (!bytes) {
        if (bytes.error().code == ENOENT) return std::vector<Entry>();
        return unexpected(bytes.error());
    }
    return decoded(*bytes).entries;
}

std::vector<CaptureJournal::Entry> CaptureJournal::adoptOrphans() {
    std::vector<Entry> orphans;
    if (!session_) return orphans;
    // Under the file's lock: of two programs that start at once only one finds them ownerless.
    const auto rewritten = to_.files.rewrite(
        path(),
        [&](const std::string& bytes) -> std::optional<std::string> {
            orphans.clear();
            std::string adopted = bytes;
            for (Entry& entry : decoded(bytes).entries) {
                if (!entry.isOpen() || session_->isAlive(entry.session)) continue;
                adopted += encoded({.kind = Kind::adopted,
                                    .session = session_->number(),
                                    .at = microseconds(to_.clock.now()),
                                    .id = entry.id,
                                    .fields = {}});
                orphans.push_back(std::move(entry));
            }
            if (orphans.empty()) return std::nullopt;
            return adopted;
        },
        privateFileMode);
    if (!rewritten) {
        to_.log.line("❌ CaptureJournal: Could not take over unfinished captures: " + rewritten.error().description);
        return {};
    }
    return orphans;
}

std::vector<CaptureJournal::Offer> CaptureJournal::cancelledTexts(const std::string& target) const {
    std::vector<Offer> texts;
    const auto all = entries();
    if (!all) return texts;
    std::vector<const Entry*> cancelled;
    for (const Entry& entry : *all)
        if (entry.state == State::cancelled && !entry.isRecorded && entry.target == target
            && !trimmed(entry.text).empty())
            cancelled.push_back(&entry);
    std::stable_sort(cancelled.begin(), cancelled.end(), [](const auto* a, const auto* b) { return a->at > b->at; });
    for (const Entry* entry : cancelled) {
        if (texts.size() == keptCancelled) break;
        const auto isSame = [&](const Offer& offer) { return offer.text == entry->text; };
        if (std::none_of(texts.begin(), texts.end(), isSame)) texts.push_back({entry->id, entry->text});
    }
    return texts;
}

std::optional<CaptureJournal::Entry> CaptureJournal::lastUndoable() const {
    const auto all = entries();
    if (!all) return std::nullopt;
    std::optional<Entry> last;
    for (const Entry& entry : *all)
        if (entry.state == State::delivered && !entry.undo.empty() && (!last || entry.at >= last->at)) last = entry;
    return last;
}

std::string CaptureJournal::condensed(const std::vector<Entry>& entries) const {
    std::string bytes;
    for (const Entry& entry : entries) {
        const auto put = [&](Kind kind, std::vector<std::string_view> fields) {
            bytes += encoded({.kind = kind,
                              .session = entry.session,
                              .at = microseconds(entry.at),
                              .id = entry.id,
                              .fields = std::move(fields)});
        };
        if (entry.state == State::typing) {
            put(Kind::typed, {entry.target, entry.text});
        } else if (entry.state == State::cancelled) {
            put(Kind::cancelled, {entry.target, entry.text});
        } else {
            put(Kind::confirmed, {entry.target, entry.text, entry.optionId, entry.optionName});
            if (entry.note) put(Kind::attempted, {*entry.note});
            if (entry.state == State::delivered || entry.state == State::undone)
                put(Kind::delivered, {entry.receipt, entry.undo});
            if (entry.state == State::failed) put(Kind::failed, {entry.error});
            if (entry.state == State::undone) put(Kind::undone, {});
            if (entry.isRecorded) put(Kind::recorded, {});
        }
    }
    return bytes;
}

std::vector<bool> CaptureJournal::worthKeeping(const std::vector<Entry>& entries, TimePoint now) {
    std::vector<bool> kept(entries.size(), false);
    std::map<std::string, std::size_t> cancelled;
    std::size_t undoable = 0;
    for (std::size_t i = entries.size(); i-- > 0;) {
        const Entry& entry = entries[i];
        const Duration age = now - entry.at;
        if (entry.isOpen()) {
            kept[i] = true;
        } else if (entry.state == State::cancelled) {
            kept[i] = age < keptCancelledFor && !entry.isRecorded && !trimmed(entry.text).empty()
                      && cancelled[entry.target]++ < keptCancelled;
        } else if (entry.state == State::delivered && !entry.undo.empty() && age < keptUndoableFor) {
            kept[i] = undoable++ < keptUndoable || !entry.isRecorded;
        } else {
            kept[i] = !entry.isRecorded;
        }
    }
    return kept;
}

void CaptureJournal::keepAside(const std::string& damaged) const {
    std::string stamp = isoUtc(to_.clock.now());
    std::erase_if(stamp, [](char c) { return c == '-' || c == ':'; });
    const std::string aside = path() + ".damaged-" + stamp;
    const auto kept = to_.files.append(aside, damaged, {.mode = privateFileMode, .durable = true});
    to_.log.line("❌ CaptureJournal: " + std::to_string(damaged.size()) + " bytes could not be read"
                 + (kept ? " and are kept as " + snipwren::fileName(aside) : ": " + kept.error().description));
}

FileIO::Answer<void> CaptureJournal::rewrite(const std::function<bool(const Entry&)>& keep) {
    grown_ = 0;
    return to_.files.rewrite(
        path(),
        [&](const std::string& bytes) -> std::optional<std::string> {
            Contents contents = decoded(bytes);
            if (!contents.damaged.empty()) keepAside(contents.damaged);
            const std::vector<bool> kept = worthKeeping(contents.entries, to_.clock.now());
            std::vector<Entry> remaining;
            for (std::size_t i = 0; i < kept.size(); ++i)
                if (kept[i] && keep(contents.entries[i])) remaining.push_back(std::move(contents.entries[i]));
            std::string anew = condensed(remaining);
            if (anew == bytes) return std::nullopt;
            return anew;
        },
        privateFileMode);
}

FileIO::Answer<void> CaptureJournal::compact() {
    return rewrite([](const Entry&) { return true; });
}

FileIO::Answer<void> CaptureJournal::forgetFinished() {
    return rewrite([](const Entry& entry) { return entry.isOpen(); });
}
} // namespace snipwren
