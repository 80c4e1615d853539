#pragma once

#include "platform/Pasteboard.h"

namespace snipwren {
/// The session's clipboard through the helper programs that are there: wl-copy under Wayland, xclip or xsel under X11.
/// Without one of them nothing is claimed to be copied.
class CommandPasteboard final : public Pasteboard {
public:
    /// The helpers replace what is there; there is nothing to do before.
    void clear() override {}
    bool setString(const std::string& text) override;
    std::optional<std::string> string() const override { return last_; }

private:
    std::optional<std::string> last_;
};
} // namespace snipwren
