#pragma once

#include <optional>
#include <string>
#include <vector>

namespace snipwren {
/// Finds and starts the small programs that come with us.
class ProgramLauncher {
public:
    ProgramLauncher() = delete;
    /// Beside our own program (also where the build leaves it), then on the PATH. None when it is nowhere.
    static std::optional<std::string> find(const std::string& name);
    /// Starts it for good: in a session of its own, without our streams, outliving us. `environment` adds to ours.
    static bool startDetached(const std::string& path,
                              const std::vector<std::pair<std::string, std::string>>& environment);
};
} // namespace snipwren
