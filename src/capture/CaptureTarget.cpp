#include "capture/CaptureTarget.h"

namespace snipwren {
std::vector<PickerOption> CaptureTarget::pickerOptions(std::stop_token) { return {}; }
std::vector<PickerOption> CaptureTarget::filteredOptions(const std::string&) const { return {}; }
} // namespace snipwren

std::size_t std::hash<snipwren::PickerOption>::operator()(const snipwren::PickerOption& option) const noexcept {
    const std::size_t id = std::hash<std::string>()(option.id);
    return id ^ (std::hash<std::string>()(option.displayName) + 0x9e3779b97f4a7c15ULL + (id << 6) + (id >> 2));
}
