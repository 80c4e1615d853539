#include "capture/CaptureFailureGuide.h"

#include <algorithm>

#include "base/Text.h"
#include "capture/CaptureTargets.h"

namespace snipwren {
const CaptureFailureGuide& CaptureFailureGuide::recovery() {
    static const CaptureFailureGuide guide{"Error Logs", std::nullopt, "Show recovery log"};
    return guide;
}

CaptureFailureGuide CaptureFailureGuide::resolve(const CaptureTargets& targets, std::string_view command,
                                                 std::string_view detail) {
    const CaptureTarget* const target = targets.find(command);
    return target ? target->failureGuide(detail) : recovery();
}

bool CaptureFailureGuide::isPermissionProblem(std::string_view detail) {
    constexpr std::string_view signs[] = {"permission", "denied", "not authorized", "access"};
    const std::string lower = lowercased(detail);
    return std::ranges::any_of(signs, [&](std::string_view sign) { return lower.find(sign) != std::string::npos; });
}
} // namespace snipwren
