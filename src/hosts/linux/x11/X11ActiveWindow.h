#pragma once

#include <memory>

#include "hosts/linux/ActiveWindowSource.h"

namespace snipwren {
/// Reads the active window, its title, place and owners over an X connection of its own, which is opened on first use and
/// again after the server went away. Any thread, one caller at a time.
class X11ActiveWindow final : public ActiveWindowSource {
public:
    X11ActiveWindow();
    ~X11ActiveWindow() override;
    std::optional<ActiveWindow> activeWindow() override;

private:
    struct State;
    const std::unique_ptr<State> state_;
};
} // namespace snipwren
