#include "capture/HostKeys.h"

#include <utility>

#include "base/Text.h"

namespace snipwren {
void HostKeys::owe(std::vector<KeptKey> keys) {
    for (KeptKey& key : keys) owed_.push_back(std::move(key));
}

std::optional<KeptKey> HostKeys::takeFirst() {
    if (owed_.empty()) return std::nullopt;
    KeptKey key = std::move(owed_.front());
    owed_.pop_front();
    return key;
}

std::optional<CaptureWalk> HostKeys::giveUpToATrigger() {
    const bool isSecret = workspace_.isSecureInputEnabled(); // As on the tap: not even looked at.
    if (isSecret) typedText_.erase();
    for (std::size_t i = 0; !isSecret && i < owed_.size(); ++i) {
        const auto match = typedText_.apply(owed_[i].event());
        if (!match) continue;
        // Keys of the trigger that are still here need not be typed first and removed then.
        std::string typed = match->triggerBody;
        std::size_t end = i;
        while (end > 0 && !typed.empty() && !owed_[end - 1].characters.empty()
               && typed.ends_with(owed_[end - 1].characters))
            typed.resize(typed.size() - owed_[--end].characters.size());
        const auto at = [this](std::size_t index) { return owed_.begin() + static_cast<std::ptrdiff_t>(index); };
        CaptureWalk walk;
        walk.target = &targets_[match->target];
        walk.trigger = TypedTrigger{typed, codePointCount(typed), match->isCertain};
        walk.withheld.assign(at(end), at(i));
        for (std::size_t k = 0; k < end; ++k) give(owed_[k]);
        owed_.erase(owed_.begin(), at(i + 1));
        return walk;
    }
    for (const KeptKey& key : owed_) give(key);
    owed_.clear();
    return std::nullopt;
}

void HostKeys::give(const KeptKey& key) {
    if (key.isComposing) return; // What it is composed to follows; pressed too, it would be composed once more.
    const std::string text(textOf(key.characters));
    const bool typesText = !key.modifiers.makeShortcut() && !text.empty();
    if (typesText ? keyboard_.typeText(text) : keyboard_.pressKey(key.keyCode, key.modifiers)) return;
    log_.line("CaptureRouter: A key pressed while the overlay was opening could not be given back");
}
} // namespace snipwren
