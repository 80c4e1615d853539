#pragma once

#include "update/AppUpdateChecker.h"

namespace snipwren {
/// This program as it runs: its version and build, the system's version, and whether a package manager put it here.
RunningBuild runningProgram();
} // namespace snipwren
