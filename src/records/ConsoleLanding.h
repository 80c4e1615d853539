#pragma once

#include <iosfwd>
#include <mutex>

#include "records/CaptureLanding.h"

namespace snipwren {
/// Writes each receipt as one line, with the place to go to.
class ConsoleLanding final : public CaptureLanding {
public:
    explicit ConsoleLanding(std::ostream& out) : out_(out) {}
    void announce(const Landing& landing) override;

private:
    std::mutex mutex_;
    std::ostream& out_;
};
} // namespace snipwren
