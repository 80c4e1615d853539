#pragma once

#include <vector>

#include "platform/HeadsUpPanel.h"

namespace snipwren {
/// Keeps every notice it was asked to show.
class RecordingHeadsUpPanel final : public HeadsUpPanel {
public:
    std::vector<HeadsUp> notices;
    void show(const HeadsUp& notice) override { notices.push_back(notice); }
};
} // namespace snipwren
