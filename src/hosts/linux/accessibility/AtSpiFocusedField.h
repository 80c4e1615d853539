#pragma once

#include <functional>
#include <memory>

#include "base/Log.h"
#include "hosts/linux/ActiveWindowSource.h"
#include "platform/FocusedField.h"
#include "platform/Workspace.h"

namespace snipwren {
class AtSpiWorker;
struct AtSpiField;

/// The field that has the keyboard, through the desktop's accessibility bus. A desktop without one costs nothing but the
/// answers: every field is unknown then. Any thread.
class AtSpiFocusedField final : public FocusedField {
public:
    /// All outlive this object; elements handed out may outlive it and then answer nothing.
    AtSpiFocusedField(ActiveWindowSource& windows, const Workspace& workspace, Log& log);
    ~AtSpiFocusedField() override;

    /// Starts the worker thread, which connects in the background.
    void start();
    void stop();
    bool isConnected() const;

    std::shared_ptr<FieldElement> focusedElement() override;
    void setFocusObserver(FocusObserver observer) override;

    /// Told whenever a password field gets or loses the focus, on the worker thread. To be set before start().
    void setSecureChanged(std::function<void(bool)> changed) { secureChanged_ = std::move(changed); }

private:
    void tellSecure(bool isSecure);
    void focusChanged(const std::shared_ptr<const AtSpiField>& field);
    std::string bundleIdOf(int processId) const;

    const Workspace& workspace_;
    const std::shared_ptr<AtSpiWorker> worker_;
    /// Worker thread, or any while it does not run.
    FocusObserver observer_;
    std::function<void(bool)> secureChanged_;
    bool isSecure_ = false;
};
} // namespace snipwren
