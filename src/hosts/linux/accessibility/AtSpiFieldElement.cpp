#include "hosts/linux/accessibility/AtSpiFieldElement.h"

#include <algorithm>

#include "hosts/linux/accessibility/AtSpiGeometry.h"

namespace snipwren {
namespace {
constexpr const char* objectReplacement = "\xEF\xBF\xBC"; // U+FFFC stands for something inside of the text.
} // namespace

/// Runs the job with a fresh budget; an empty (or refusing) answer when it cannot run.
template <class F>
auto AtSpiFieldElement::ask(F&& job, bool evenAfterTimeout) -> decltype(job()) {
    using Answer = decltype(job());
    auto answer = worker_->call([&]() -> Answer {
        const SteadyPoint now = std::chrono::steady_clock::now();
        if (!evenAfterTimeout && silentSince_ && now - *silentSince_ < silenceAfterTimeout) return Answer{};
        worker_->bus().beginJob(AtSpiFocusTracker::jobBudget);
        Answer found = job();
        silentSince_.reset();
        if (worker_->bus().timedOut()) silentSince_ = std::chrono::steady_clock::now();
        return found;
    });
    return answer ? std::move(*answer) : Answer{};
}

std::optional<FieldDescription> AtSpiFieldElement::describe() { return field_->description; }

std::optional<AtSpiFieldElement::Contents> AtSpiFieldElement::contents() {
    // What stands in a password field is nobody's business.
    if (!field_->hasText || field_->description.isSecure) return std::nullopt;
    AtSpiBus& bus = worker_->bus();
    const auto count = bus.characterCount(field_->object);
    if (!count || *count > maxCharacters) return std::nullopt;
    // With -1 for the end some programs answer an empty text.
    auto text = *count == 0 ? std::optional<std::string>("") : bus.text(field_->object, 0, *count);
    if (!text) return std::nullopt;
    auto units = AtSpiTextUnits::of(*text, *count);
    if (!units) return std::nullopt;
    return Contents{std::move(*text), std::move(*units)};
}

std::optional<std::string> AtSpiFieldElement::value() {
    return ask(
        [&]() -> std::optional<std::string> {
            auto found = contents();
            if (!found) return std::nullopt;
            return std::move(found->text);
        },
        true);
}

std::optional<Utf16Range> AtSpiFieldElement::selection(const Contents& contents) {
    AtSpiBus& bus = worker_->bus();
    // Programs without a selection answer an error, nothing or an empty range.
    if (bus.selectionCount(field_->object).value_or(0) > 0) {
        if (const auto range = bus.selection(field_->object, 0); range && range->first != range->second) {
            const std::size_t first = contents.units.toUtf16(std::min(range->first, range->second));
            const std::size_t second = contents.units.toUtf16(std::max(range->first, range->second));
            return Utf16Range{first, second - first};
        }
    }
    const auto caret = bus.caretOffset(field_->object);
    if (!caret) return std::nullopt;
    return Utf16Range{contents.units.toUtf16(*caret), 0};
}

std::optional<Utf16Range> AtSpiFieldElement::selectedRange() {
    return ask(
        [&]() -> std::optional<Utf16Range> {
            const auto found = contents();
            if (!found) return std::nullopt;
            return selection(*found);
        },
        true);
}

std::optional<std::string> AtSpiFieldElement::selectedText() {
    return ask([&]() -> std::optional<std::string> {
        const auto found = contents();
        const auto range = found ? selection(*found) : std::nullopt;
        if (!range) return std::nullopt;
        const std::size_t start = utf8Offset(found->text, range->start);
        return found->text.substr(start, utf8Offset(found->text, range->start + range->length) - start);
    });
}

/// Qt carries out edits of read-only fields, and answers yes for objects that hold no text at all.
bool AtSpiFieldElement::mayEdit() {
    if (!field_->hasEditableText || field_->description.isSecure) return false;
    const auto states = worker_->bus().states(field_->object);
    const auto has = [&](AtSpiState state) { return (*states >> static_cast<unsigned>(state) & 1) != 0; };
    return states && has(AtSpiState::editable) && !has(AtSpiState::readOnly);
}

EditOutcome AtSpiFieldElement::insert(int position, const std::string& text) {
    AtSpiBus& bus = worker_->bus();
    const std::string toolkit = asciiLowercased(bus.toolkitName(field_->object.bus).value_or(""));
    // The unit of the length differs, and a wrong one inserts nothing or half a character.
    if (toolkit == "gtk") return bus.insertText(field_->object, position, text, static_cast<int>(text.size()));
    if (toolkit == "qt") return bus.insertText(field_->object, position, text, static_cast<int>(utf16Length(text)));
    return EditOutcome::refused;
}

EditOutcome AtSpiFieldElement::replaceRange(const Utf16Range& range, const std::string& text) {
    if (text.find('\0') != std::string::npos) return EditOutcome::refused;
    struct Answer {
        EditOutcome outcome = EditOutcome::refused;
    };
    return ask([&]() -> Answer {
               if (!mayEdit()) return {};
               const auto found = contents();
               if (!found || range.start > found->units.length() || range.length > found->units.length() - range.start)
                   return {};
               const int start = found->units.fromUtf16(range.start);
               const int end = found->units.fromUtf16(range.start + range.length);
               // Inserting first: a refused insertion has changed nothing.
               if (!text.empty())
                   if (const EditOutcome inserted = insert(end, text); inserted != EditOutcome::applied)
                       return {inserted};
               if (start == end) return {EditOutcome::applied};
               const EditOutcome deleted = worker_->bus().deleteText(field_->object, start, end);
               // Half done is neither done nor refused.
               if (!text.empty() && deleted == EditOutcome::refused) return {EditOutcome::unknown};
               return {deleted};
           })
        .outcome;
}

EditOutcome AtSpiFieldElement::setValue(const std::string& value) {
    if (value.find('\0') != std::string::npos) return EditOutcome::refused;
    struct Answer {
        EditOutcome outcome = EditOutcome::refused;
    };
    return ask([&]() -> Answer {
               if (!mayEdit()) return {};
               return {worker_->bus().setTextContents(field_->object, value)};
           })
        .outcome;
}

std::optional<Rect> AtSpiFieldElement::boundsOf(const Utf16Range& range) {
    return ask([&]() -> std::optional<Rect> {
        const auto window = worker_->windows().activeWindow();
        const auto found = window ? contents() : std::nullopt;
        if (!found) return std::nullopt;
        AtSpiBus& bus = worker_->bus();
        const AtSpiGeometry geometry(bus, *field_, *window);
        const int start = found->units.fromUtf16(range.start);
        if (range.length > 0) return geometry.range(start, found->units.fromUtf16(range.start + range.length));
        // In a composed document the caret stands in one of the paragraphs inside.
        const std::size_t at = utf8Offset(found->text, range.start);
        const AtSpiReference& leaf = worker_->tracker().lastCaretObject();
        if (found->text.compare(at, 3, objectReplacement) == 0 && leaf.bus == field_->object.bus)
            if (const auto caret = bus.caretOffset(leaf)) return geometry.caret(leaf, *caret, true);
        return geometry.caret(field_->object, start, found->text.find('\n') >= at);
    });
}

std::optional<Rect> AtSpiFieldElement::frame() {
    return ask([&]() -> std::optional<Rect> {
        const auto window = worker_->windows().activeWindow();
        if (!window) return std::nullopt;
        return AtSpiGeometry(worker_->bus(), *field_, *window).frame();
    });
}
} // namespace snipwren
