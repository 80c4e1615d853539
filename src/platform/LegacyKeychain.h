#pragma once

#include <string>
#include <string_view>

namespace snipwren {
/// The system's own secret storage, where earlier versions kept their secrets. It is read only to move them out, and
/// never in a way that shows a prompt to the user.
class LegacyKeychain {
public:
    enum class Outcome { found, missing, needsInteraction, failed };
    struct Answer {
        Outcome outcome = Outcome::missing;
        std::string data;
    };

    virtual ~LegacyKeychain() = default;
    virtual Answer read(std::string_view service, std::string_view account) = 0;
    /// A missing item is no error.
    virtual void remove(std::string_view service, std::string_view account) = 0;
};
} // namespace snipwren
