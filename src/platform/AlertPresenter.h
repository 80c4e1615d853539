#pragma once

#include <functional>
#include <string>
#include <vector>

namespace snipwren {
struct Alert {
    enum class Style { informational, critical };
    Style style = Style::informational;
    std::string title;
    std::string text;
    /// The first is the default.
    std::vector<std::string> buttons{"OK"};
};

/// Shows an alert without blocking. Main queue.
class AlertPresenter {
public:
    virtual ~AlertPresenter() = default;
    /// `answered` gets the index of the chosen button, or nothing chosen (closed, not shown) as -1. May be empty.
    virtual void present(const Alert& alert, std::function<void(int)> answered) = 0;
};
} // namespace snipwren
