#include "records/ConsoleLanding.h"

#include <ostream>

#include "base/Text.h"

namespace snipwren {
void ConsoleLanding::announce(const Landing& landing) {
    std::string line = landing.target + ": " + collapsedWhitespace(landing.receipt);
    if (landing.revealPath && !landing.revealPath->empty()) line += " (" + *landing.revealPath + ")";
    const std::lock_guard lock(mutex_);
    out_ << line << std::endl;
}
} // namespace snipwren
