#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "base/Log.h"
#include "capture/CaptureWalk.h"
#include "platform/KeyboardTap.h"
#include "platform/Workspace.h"
#include "trigger/TypedText.h"

namespace snipwren {
/// Keys that were pressed while capture mode came or went and have no owner yet, oldest first, and the way in which those
/// that turn out to be the host's are given to it. Main queue.
class HostKeys {
public:
    HostKeys(SyntheticKeyboard& keyboard, const Workspace& workspace, TypedText& typedText,
             const CaptureTargets& targets, Log& log)
        : keyboard_(keyboard),
          workspace_(workspace),
          typedText_(typedText),
          targets_(targets),
          log_(log) {}

    void owe(KeptKey key) { owed_.push_back(std::move(key)); }
    void owe(std::vector<KeptKey> keys);
    /// The oldest, which belongs to the overlay; none when none is left.
    std::optional<KeptKey> takeFirst();
    /// Gives them to the host, up to the end of the next trigger among them: that one begins a walk, and its own keys that
    /// are still here are not typed at all.
    std::optional<CaptureWalk> giveUpToATrigger();
    void give(const KeptKey& key);

private:
    SyntheticKeyboard& keyboard_;
    const Workspace& workspace_;
    TypedText& typedText_;
    const CaptureTargets& targets_;
    Log& log_;
    std::deque<KeptKey> owed_;
};
} // namespace snipwren
