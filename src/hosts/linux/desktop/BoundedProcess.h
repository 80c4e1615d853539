#pragma once

#include <chrono>
#include <stop_token>
#include <string>
#include <vector>

#include "base/Result.h"

namespace snipwren {
/// Runs a program to its end, but never longer than it is allowed: one that hangs is killed with everything it started.
class BoundedProcess {
public:
    struct Outcome {
        /// The exit status; 128 and more when a signal ended it.
        int status = 0;
        std::string output;
        std::string errors;
    };
    struct Error {
        /// A full sentence.
        std::string description;
    };
    static constexpr std::size_t maxOutput = 1 << 20;

    BoundedProcess() = delete;
    /// `command` begins with the program's path. The input goes to its standard input.
    static Result<Outcome, Error> run(const std::vector<std::string>& command, const std::string& input,
                                      std::chrono::milliseconds limit, std::stop_token stop);
};
} // namespace snipwren
