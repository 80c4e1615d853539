#pragma once

#include <mutex>

#include "platform/Pasteboard.h"

namespace snipwren {
/// The virtual desktop's clipboard. Thread safe.
class VirtualPasteboard final : public Pasteboard {
public:
    void clear() override {
        const std::lock_guard lock(mutex_);
        text_.reset();
    }
    bool setString(const std::string& text) override {
        const std::lock_guard lock(mutex_);
        if (refuses_) return false;
        text_ = text;
        return true;
    }
    std::optional<std::string> string() const override {
        const std::lock_guard lock(mutex_);
        return text_;
    }
    std::optional<std::string> ownString() const override { return string(); }
    /// Another program holds the clipboard.
    void setRefuses(bool refuses) {
        const std::lock_guard lock(mutex_);
        refuses_ = refuses;
    }

private:
    mutable std::mutex mutex_;
    std::optional<std::string> text_;
    bool refuses_ = false;
};
} // namespace snipwren
