#pragma once

#include <string>

#include "base/Clock.h"

namespace snipwren {
/// The clocks that deadlines are kept by.
class SchedulerClocks {
public:
    virtual ~SchedulerClocks() = default;
    virtual TimePoint wall() const = 0;
    /// Since the machine was booted, sleep included; no one sets it.
    virtual Duration sinceBoot() const = 0;
    /// Of this run of the machine; a deadline since boot means nothing in another run.
    virtual std::string bootId() const = 0;
};

class SystemSchedulerClocks final : public SchedulerClocks {
public:
    TimePoint wall() const override;
    Duration sinceBoot() const override;
    std::string bootId() const override;
};
} // namespace snipwren
