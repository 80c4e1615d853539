#pragma once

#include <string>
#include <vector>

#include "app/Host.h"
#include "hosts/virtual/VirtualDesktop.h"
#include "hosts/virtual/VirtualEventStore.h"
#include "hosts/virtual/VirtualNotificationCenter.h"
#include "hosts/virtual/VirtualOverlay.h"
#include "hosts/virtual/VirtualPasteboard.h"

namespace snipwren {
/// The virtual desktop as a host: carries `snipwren type`, `snipwren capture` and the tests of whole captures. What a
/// desktop would show (receipts, alerts, notices) is kept for whoever drives it.
class VirtualHost final : public CaptureLanding, public AlertPresenter, public HeadsUpPanel {
public:
    /// Parts of the real machine in place of the virtual ones; each may be null.
    struct RealParts {
        Pasteboard* pasteboard = nullptr;
        UserNotificationCenter* notificationCenter = nullptr;
        EventStore* eventStore = nullptr;
    };
    VirtualHost(SerialQueue& mainQueue, Clock& clock, const RealParts& real)
        : mainQueue_(mainQueue),
          overlay_(mainQueue),
          notificationCenter_(mainQueue, clock),
          real_(real) {
        desktop_.setKeyWindow(&overlay_);
    }

    Host host();
    VirtualDesktop& desktop() { return desktop_; }
    VirtualOverlay& overlay() { return overlay_; }
    VirtualPasteboard& pasteboard() { return pasteboard_; }
    VirtualNotificationCenter& notificationCenter() { return notificationCenter_; }
    VirtualEventStore& eventStore() { return eventStore_; }
    std::vector<Landing> landings() const;
    std::vector<Alert> alerts() const;
    std::vector<HeadsUp> notices() const;

    void announce(const Landing& landing) override;
    void present(const Alert& alert, std::function<void(int)> answered) override;
    void show(const HeadsUp& notice) override;

private:
    SerialQueue& mainQueue_;
    VirtualDesktop desktop_;
    VirtualOverlay overlay_;
    VirtualPasteboard pasteboard_;
    VirtualNotificationCenter notificationCenter_;
    VirtualEventStore eventStore_;
    const RealParts real_;
    mutable std::mutex mutex_;
    std::vector<Landing> landings_;
    std::vector<Alert> alerts_;
    std::vector<HeadsUp> notices_;
};
} // namespace snipwren
