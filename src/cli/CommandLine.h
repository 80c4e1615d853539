#pragma once

#include <iosfwd>

#include "app/Environment.h"

namespace snipwren {
/// The whole `snipwren` command line: parses the arguments, runs the command, answers the exit status. Tests call it with
/// their own streams and folders.
int runCommandLine(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err,
                   Environment& environment);
} // namespace snipwren
