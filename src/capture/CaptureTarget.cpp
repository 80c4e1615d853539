#include "capture/CaptureTarget.h"

namespace snipwren {
std::string_view CaptureTarget::placeholder(bool isFiltering) const {
    const CaptureTargetHint* const words = hint();
    if (!words) return generalPlaceholder;
    return isFiltering && !words->filterPlaceholder.empty() ? words->filterPlaceholder : words->placeholder;
}

std::vector<PickerOption> CaptureTarget::pickerOptions(std::stop_token) { return {}; }
std::vector<PickerOption> CaptureTarget::filteredOptions(const std::string&) const { return {}; }
std::optional<std::string> CaptureTarget::preview(const std::string&) const { return std::nullopt; }
std::optional<std::string> CaptureTarget::readiness() const { return std::nullopt; }
CaptureFailureGuide CaptureTarget::failureGuide(std::string_view) const { return CaptureFailureGuide::recovery(); }
bool CaptureTarget::deliversAfter(Duration) const { return true; }

Result<std::string, CaptureError> CaptureTarget::undo(const std::string&, const std::string&, std::stop_token) {
    return unexpected(CaptureError{commandName(), -2, "A capture with //" + commandName() + " cannot be undone."});
}
} // namespace snipwren

std::size_t std::hash<snipwren::PickerOption>::operator()(const snipwren::PickerOption& option) const noexcept {
    const std::size_t id = std::hash<std::string>()(option.id);
    return id ^ (std::hash<std::string>()(option.displayName) + 0x9e3779b97f4a7c15ULL + (id << 6) + (id >> 2));
}
