#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "capture/CaptureTarget.h"

namespace snipwren {
/// The registry: every target in the order in which command words are tried. Never changes once it is made.
class CaptureTargets {
public:
    using List = std::vector<std::unique_ptr<CaptureTarget>>;
    explicit CaptureTargets(List targets) : targets_(std::move(targets)) {
        for (const auto& target : targets_) words_.push_back(target->commandName());
    }

    auto begin() const { return targets_.begin(); }
    auto end() const { return targets_.end(); }
    std::size_t size() const { return targets_.size(); }
    CaptureTarget& operator[](std::size_t index) const { return *targets_[index]; }
    /// None for an unknown word.
    CaptureTarget* find(std::string_view commandName) const {
        for (const auto& target : targets_)
            if (target->commandName() == commandName) return target.get();
        return nullptr;
    }
    /// In registry order.
    const std::vector<std::string>& commandWords() const { return words_; }

private:
    const List targets_;
    std::vector<std::string> words_;
};
} // namespace snipwren
