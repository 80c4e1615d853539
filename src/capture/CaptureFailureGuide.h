#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace snipwren {
class CaptureTargets;

/// The next step that a failure notice offers.
struct CaptureFailureGuide {
    /// Title of the settings section to open.
    std::string section;
    /// The setting to focus in it.
    std::optional<std::string> field;
    std::string actionTitle;
    friend bool operator==(const CaptureFailureGuide&, const CaptureFailureGuide&) = default;

    /// What is offered where no setting would help.
    static const CaptureFailureGuide& recovery();
    /// The target's own row; `detail` is the failure's description.
    static CaptureFailureGuide resolve(const CaptureTargets& targets, std::string_view command,
                                       std::string_view detail);
    /// Whether the description speaks of something that the user has not allowed.
    static bool isPermissionProblem(std::string_view detail);
};
} // namespace snipwren
