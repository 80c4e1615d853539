#include "capture/CaptureWalk.h"

namespace snipwren {
namespace {
bool isSameWindow(const std::shared_ptr<const RunningApplication>& a,
                  const std::shared_ptr<const RunningApplication>& b) {
    if (a == b) return true;
    return a && b && a->window == b->window && a->processId == b->processId && a->bundleId == b->bundleId;
}
} // namespace

CaptureWalker::CaptureWalker(const Dependencies& dependencies)
    : to_(dependencies),
      stripper_(to_.keyboard, to_.workspace, to_.log, to_.pause),
      caretLocator_(to_.screens, to_.clock, to_.log) {}

bool CaptureWalker::isOriginInFront(const CaptureWalk& walk) const {
    return isSameWindow(to_.workspace.frontmostApplication(), walk.origin);
}

std::optional<CaptureOpening> CaptureWalker::walk(const CaptureWalk& walk,
                                                  const HostTriggerStripper::StillThere& stillThere) {
    if (const auto missing = walk.target->readiness()) {
        tellMissing(*walk.target, *missing);
        return std::nullopt;
    }
    CaptureOpening opening;
    opening.context = HostFocus::snapshot(to_.workspace, to_.fields);
    if (walk.trigger && walk.trigger->documentTriggerLength > 0 && stillThere())
        stripper_.strip(opening.context.element.get(), *walk.trigger, opening.context.bundleId(), stillThere);
    opening.anchor = caretLocator_.locate(opening.context.element.get());
    opening.offers = to_.journal.cancelledTexts(walk.target->commandName());
    return opening;
}

void CaptureWalker::tellMissing(const CaptureTarget& target, const std::string& missing) {
    const CaptureFailureGuide guide = target.failureGuide("path");
    UserInfo notice{{"command", target.commandName()},
                    {"detail", "path"},
                    {"message", missing},
                    {"section", guide.section},
                    {"actionTitle", guide.actionTitle}};
    if (guide.field) notice.emplace("field", *guide.field);
    to_.notifications.post("PresentCaptureFailure", std::move(notice));
}
} // namespace snipwren
