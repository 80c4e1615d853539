#pragma once

#include "platform/AlertPresenter.h"

namespace snipwren {
/// Alerts as windows of their own, which block nothing. Main thread.
class QtAlertPresenter final : public AlertPresenter {
public:
    void present(const Alert& alert, std::function<void(int)> answered) override;
};
} // namespace snipwren
