#pragma once

#include <functional>
#include <string>

#include "cli/Command.h"
#include "update/AppUpdateChecker.h"

namespace snipwren {
/// `snipwren update check`: asks the service once and says what it found.
void checkForUpdate(CommandContext& context, const UpdateService& service, const RunningBuild& running, bool json);
/// `snipwren update install`: checks, downloads, verifies and hands the file to `open`.
void installUpdate(CommandContext& context, const UpdateService& service, const RunningBuild& running,
                   const std::function<bool(const std::string&)>& open, bool json);
} // namespace snipwren
