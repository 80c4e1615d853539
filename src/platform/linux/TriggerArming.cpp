#include "platform/linux/TriggerArming.h"

#include <algorithm>

#include "base/Text.h"

namespace snipwren {
namespace {
bool mayStandBefore(std::string_view before) {
    return before.empty() || (before.back() != ':' && before.back() != '/');
}
} // namespace

TriggerArming::TriggerArming(std::vector<std::string> words) : words_(std::move(words)) { text_.reserve(4 * limit); }

void TriggerArming::typed(std::string_view characters) {
    if (characters.size() > limit) characters.remove_prefix(characters.size() - limit);
    for (const char c : characters) text_ += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    if (text_.size() > limit) text_.erase(0, text_.size() - limit);
}

void TriggerArming::deleted() { text_.resize(lastCharacterStart(text_)); }

void TriggerArming::replace(std::string_view text) {
    clear();
    typed(text);
}

bool TriggerArming::wantsSlash() const {
    const std::string_view text = text_;
    return !text.empty() && text.back() == '/' && mayStandBefore(text.substr(0, text.size() - 1));
}

bool TriggerArming::wantsTerminators() const {
    const std::string_view text = text_;
    const std::size_t slashes = text.rfind("//");
    if (slashes == std::string_view::npos || !mayStandBefore(text.substr(0, slashes))) return false;
    const std::string_view word = text.substr(slashes + 2);
    if (words_.empty()) return word.find_first_of(" \t\r\n/") == std::string_view::npos;
    return std::any_of(words_.begin(), words_.end(),
                       [&](const std::string& candidate) { return candidate.compare(0, word.size(), word) == 0; });
}
} // namespace snipwren
