#include "context/notes/NoteReader.h"

#include <utility>

#include "base/Text.h"
#include "context/notes/NoteText.h"

namespace snipwren {
namespace {
std::size_t bytesOf(const NoteReader::Note& note) { return note.document ? note.document->content.size() : 0; }
} // namespace

NoteReader::~NoteReader() {
    for (std::jthread& thread : threads_) thread.request_stop();
}

void NoteReader::start(unsigned threads) {
    for (unsigned i = 0; i < threads; ++i) threads_.emplace_back([this](const std::stop_token& stop) { work(stop); });
}

void NoteReader::work(const std::stop_token& stop) {
    while (true) {
        std::size_t index = 0;
        {
            std::unique_lock lock(mutex_);
            // The note that the consumer waits for is always read, whatever else is waiting.
            const bool ready = wake_.wait(lock, stop, [&] {
                return claimed_ == notes_.size() || claimed_ == consumed_
                       || (claimed_ < consumed_ + lookAhead && bytes_ < bytesAhead);
            });
            if (!ready || claimed_ == notes_.size()) return;
            index = claimed_++;
        }
        Note note = read(notes_[index]);
        const std::lock_guard lock(mutex_);
        bytes_ += bytesOf(note);
        slots_[index % lookAhead] = std::move(note);
        if (index == consumed_) wake_.notify_all();
    }
}

std::optional<NoteReader::Note> NoteReader::next(const std::stop_token& stop) {
    std::unique_lock lock(mutex_);
    if (consumed_ == notes_.size()) return std::nullopt;
    auto& slot = slots_[consumed_ % lookAhead];
    if (!wake_.wait(lock, stop, [&] { return slot.has_value(); }) || stop.stop_requested()) return std::nullopt;
    std::optional<Note> note = std::exchange(slot, std::nullopt);
    const bool wasFull = bytes_ >= bytesAhead;
    bytes_ -= bytesOf(*note);
    ++consumed_;
    // Waking the readers for every note would cost more than the notes.
    if (consumed_ % 64 == 0 || claimed_ == consumed_ || (wasFull && bytes_ < bytesAhead)) wake_.notify_all();
    return note;
}

NoteReader::Note NoteReader::read(const NoteFile& file) const {
    const auto leftOut = [](std::string reason) { return Note{std::nullopt, std::move(reason)}; };
    const auto size = files_.size(file.path);
    if (!size) return leftOut(size.error().description);
    if (*size > largestFile) return leftOut("The file is larger than 16 MB.");
    auto bytes = files_.read(file.path);
    if (!bytes) return leftOut(bytes.error().description);
    std::string_view text = *bytes;
    if (text.size() > largestFile) return leftOut("The file is larger than 16 MB."); // It has grown meanwhile.
    if (text.find('\0') != std::string_view::npos) return leftOut("The file is not text: it contains zero bytes.");
    if (!isValidUtf8(text)) return leftOut("The file is not valid UTF-8 text.");
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3); // A byte order mark would hide the first heading.
    const std::string name = fileName(file.path);
    return {KnowledgeDocument{sanitizedUtf8(name.substr(0, name.rfind('.'))), NoteText::stripMarkdown(text), file.path,
                              file.source},
            {}};
}
} // namespace snipwren
