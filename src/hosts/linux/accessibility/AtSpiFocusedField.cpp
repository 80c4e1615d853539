#include "hosts/linux/accessibility/AtSpiFocusedField.h"

#include <filesystem>

#include "hosts/linux/accessibility/AtSpiFieldElement.h"
#include "hosts/linux/accessibility/AtSpiWorker.h"

namespace snipwren {
AtSpiFocusedField::AtSpiFocusedField(ActiveWindowSource& windows, const Workspace& workspace, Log& log)
    : workspace_(workspace),
      worker_(std::make_shared<AtSpiWorker>(windows, log)) {
    worker_->tracker().setChanged([this](const std::shared_ptr<const AtSpiField>& field) { focusChanged(field); });
}

AtSpiFocusedField::~AtSpiFocusedField() { stop(); }

void AtSpiFocusedField::start() { worker_->start(); }

void AtSpiFocusedField::stop() {
    worker_->stop();
    tellSecure(false);
}

bool AtSpiFocusedField::isConnected() const { return worker_->isConnected(); }

std::shared_ptr<FieldElement> AtSpiFocusedField::focusedElement() {
    const auto field = worker_->call([&] {
        worker_->bus().beginJob(AtSpiFocusTracker::jobBudget);
        return worker_->tracker().current();
    });
    if (!field || !*field) return nullptr;
    return std::make_shared<AtSpiFieldElement>(worker_, *field);
}

void AtSpiFocusedField::setFocusObserver(FocusObserver observer) {
    // On the worker thread, so that no call of the old one is under way when this answers.
    worker_->runAlways([&] { observer_ = std::move(observer); });
}

void AtSpiFocusedField::tellSecure(bool isSecure) {
    if (isSecure == isSecure_) return;
    isSecure_ = isSecure;
    if (secureChanged_) secureChanged_(isSecure);
}

void AtSpiFocusedField::focusChanged(const std::shared_ptr<const AtSpiField>& field) {
    tellSecure(field && field->description.isSecure);
    if (!observer_) return;
    if (field)
        observer_(bundleIdOf(field->processId), field->description);
    else
        observer_(bundleIdOf(0), {});
}

/// What the workspace calls the program; when it has not noticed the switch yet, the name of the executable.
std::string AtSpiFocusedField::bundleIdOf(int processId) const {
    const auto front = workspace_.frontmostApplication();
    if (front && (processId == 0 || front->processId == processId)) return front->bundleId;
    if (processId == 0) return {};
    std::error_code error;
    return asciiLowercased(
        std::filesystem::read_symlink("/proc/" + std::to_string(processId) + "/exe", error).filename().string());
}
} // namespace snipwren
