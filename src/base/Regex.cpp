#include "base/Regex.h"

#include <mutex>

#include <unicode/uregex.h>

#include "base/Text.h"

namespace snipwren {
struct Regex::State {
    ~State() { uregex_close(expression); }

    std::string pattern;
    URegularExpression* expression = nullptr;
    std::mutex mutex;
};

namespace {
constexpr int32_t stackLimit = 8 * 1024 * 1024; // Bytes; a pattern that backtracks deeper is refused, not crashed.

/// ICU reads a buffer even for empty text.
constexpr char16_t emptyText[] = u"";

void setText(URegularExpression* expression, std::u16string_view text, UErrorCode& status) {
    uregex_setText(expression, text.empty() ? emptyText : text.data(), static_cast<int32_t>(text.size()), &status);
}

RegexMatch currentMatch(URegularExpression* expression, UErrorCode& status) {
    RegexMatch match;
    const int32_t count = uregex_groupCount(expression, &status);
    for (int32_t group = 0; group <= count; ++group) {
        const int32_t start = uregex_start(expression, group, &status);
        const int32_t end = uregex_end(expression, group, &status);
        if (start < 0) {
            match.groups.emplace_back();
        } else {
            match.groups.emplace_back(
                RegexMatch::Group{static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)});
        }
    }
    return match;
}

/// Turns UTF-16 offsets into UTF-8 ones; ascending calls cost one walk of the text in total.
class OffsetWalker {
public:
    explicit OffsetWalker(std::string_view text) : text_(text) {}
    std::size_t utf8(std::size_t utf16) {
        if (utf16 < units_) units_ = bytes_ = 0;
        while (units_ < utf16 && bytes_ < text_.size()) units_ += nextScalar(text_, bytes_) > 0xFFFF ? 2 : 1;
        return bytes_;
    }

private:
    std::string_view text_;
    std::size_t units_ = 0;
    std::size_t bytes_ = 0;
};

void toUtf8Offsets(RegexMatch& match, OffsetWalker& walker) {
    for (auto& group : match.groups) {
        if (!group) continue;
        const std::size_t start = walker.utf8(group->start);
        const std::size_t end = walker.utf8(group->start + group->length);
        group = RegexMatch::Group{start, end - start};
    }
}
} // namespace

Regex::Regex(std::unique_ptr<State> state) : state_(std::move(state)) {}
Regex::Regex(Regex&&) noexcept = default;
Regex& Regex::operator=(Regex&&) noexcept = default;
Regex::~Regex() = default;

const std::string& Regex::pattern() const { return state_->pattern; }

Result<Regex, RegexError> Regex::compile(std::string_view pattern, Case letterCase, int limit) {
    auto state = std::make_unique<State>();
    state->pattern = std::string(pattern);
    const std::u16string wide = toUtf16(pattern);
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    state->expression = uregex_open(wide.data(), static_cast<int32_t>(wide.size()),
                                    letterCase == Case::insensitive ? UREGEX_CASE_INSENSITIVE : 0, &where, &status);
    if (U_FAILURE(status))
        return unexpected(RegexError{"The pattern does not compile (" + std::string(u_errorName(status))
                                     + " at character " + std::to_string(where.offset) + ")"});
    uregex_setTimeLimit(state->expression, limit, &status);
    uregex_setStackLimit(state->expression, stackLimit, &status);
    return Regex(std::move(state));
}

Result<bool, RegexFault> Regex::contains(std::u16string_view text) const {
    const std::lock_guard lock(state_->mutex);
    UErrorCode status = U_ZERO_ERROR;
    setText(state_->expression, text, status);
    const bool found = uregex_find(state_->expression, -1, &status);
    if (U_FAILURE(status)) return unexpected(RegexFault::tookTooLong);
    return found;
}

Result<bool, RegexFault> Regex::contains(std::string_view text) const { return contains(toUtf16(text)); }

Result<std::vector<RegexMatch>, RegexFault> Regex::allMatches(std::u16string_view text) const {
    const std::lock_guard lock(state_->mutex);
    UErrorCode status = U_ZERO_ERROR;
    setText(state_->expression, text, status);
    std::vector<RegexMatch> matches;
    while (uregex_findNext(state_->expression, &status) && U_SUCCESS(status))
        matches.push_back(currentMatch(state_->expression, status));
    if (U_FAILURE(status)) return unexpected(RegexFault::tookTooLong);
    return matches;
}

Result<std::vector<RegexMatch>, RegexFault> Regex::allMatches(std::string_view text) const {
    auto matches = allMatches(toUtf16(text));
    OffsetWalker walker(text);
    if (matches)
        for (RegexMatch& match : *matches) toUtf8Offsets(match, walker);
    return matches;
}

Result<std::optional<RegexMatch>, RegexFault> Regex::firstMatch(std::string_view text) const {
    const std::u16string wide = toUtf16(text);
    const std::lock_guard lock(state_->mutex);
    UErrorCode status = U_ZERO_ERROR;
    setText(state_->expression, wide, status);
    const bool found = uregex_find(state_->expression, -1, &status);
    if (U_FAILURE(status)) return unexpected(RegexFault::tookTooLong);
    if (!found) return std::nullopt;
    RegexMatch match = currentMatch(state_->expression, status);
    OffsetWalker walker(text);
    toUtf8Offsets(match, walker);
    return match;
}

Result<std::string, RegexFault> Regex::replacingAll(std::string_view text, std::string_view replacement) const {
    const std::u16string wide = toUtf16(text);
    const std::u16string with = toUtf16(replacement);
    const std::lock_guard lock(state_->mutex);
    UErrorCode status = U_ZERO_ERROR;
    setText(state_->expression, wide, status);
    std::u16string out(wide.size() + 64, u'\0');
    int32_t length = uregex_replaceAll(state_->expression, with.data(), static_cast<int32_t>(with.size()), out.data(),
                                       static_cast<int32_t>(out.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        status = U_ZERO_ERROR;
        out.resize(static_cast<std::size_t>(length));
        uregex_reset(state_->expression, 0, &status);
        length = uregex_replaceAll(state_->expression, with.data(), static_cast<int32_t>(with.size()), out.data(),
                                   static_cast<int32_t>(out.size()), &status);
    }
    if (U_FAILURE(status)) return unexpected(RegexFault::tookTooLong);
    out.resize(static_cast<std::size_t>(length));
    return toUtf8(out);
}
} // namespace snipwren
