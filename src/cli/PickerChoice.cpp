#include "cli/PickerChoice.h"

#include <algorithm>
#include <string_view>

namespace snipwren {
namespace {
std::string listed(const std::vector<PickerOption>& options) {
    constexpr std::size_t most = 10;
    std::string text;
    for (std::size_t i = 0; i < std::min(options.size(), most); ++i)
        text += "\n  " + options[i].displayName + "  (" + options[i].id + ")";
    if (options.size() > most) text += "\n  and " + std::to_string(options.size() - most) + " more";
    return text;
}

template <class Means>
std::vector<PickerOption> thoseWhere(const std::vector<PickerOption>& options, Means means) {
    std::vector<PickerOption> found;
    std::copy_if(options.begin(), options.end(), std::back_inserter(found), means);
    return found;
}
} // namespace

Result<PickerOption, std::string> chooseOption(const std::vector<PickerOption>& options,
                                               const std::vector<PickerOption>& similar, const std::string& name) {
    auto found = thoseWhere(options, [&](const PickerOption& option) { return option.id == name; });
    if (found.empty())
        found = thoseWhere(options, [&](const PickerOption& option) { return option.displayName == name; });
    if (found.empty())
        found = thoseWhere(options, [&](const PickerOption& option) {
            const std::string_view shown = option.displayName;
            const bool hasSign = !shown.empty() && (shown.front() == '#' || shown.front() == '@');
            return hasSign && shown.substr(1) == name;
        });
    if (found.size() == 1) return found.front();
    if (found.size() > 1)
        return unexpected("\"" + name + "\" means more than one conversation; nothing was sent. Give one of these "
                          + "names or identifiers:" + listed(found));
    return unexpected("There is no conversation \"" + name + "\"; nothing was sent."
                      + (similar.empty() ? " Try: snipwren slack channels" : " Did you mean:" + listed(similar)));
}
} // namespace snipwren
