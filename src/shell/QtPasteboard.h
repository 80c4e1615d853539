#pragma once

#include "platform/Pasteboard.h"

namespace snipwren {
/// The clipboard through the toolkit, which needs no window for it under X11. Main thread.
class QtPasteboard final : public Pasteboard {
public:
    void clear() override;
    bool setString(const std::string& text) override;
    std::optional<std::string> string() const override;
    std::optional<std::string> ownString() const override;
};
} // namespace snipwren
