#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include "base/Result.h"

namespace snipwren {
struct DesktopError {
    std::string description;
};

/// Talks to the desktop program of this session over the session bus, and starts it. Blocking; any thread.
class DesktopClient {
public:
    static constexpr const char* service = "org.snipwren.Desktop";
    static constexpr std::chrono::seconds callTimeout{3};
    static constexpr std::chrono::seconds undoTimeout{25};
    static constexpr std::chrono::seconds startTimeout{15};
    static constexpr std::chrono::seconds stopTimeout{10};

    DesktopClient() = delete;
    /// What the running program says of itself, as JSON; none when none runs.
    static Result<std::optional<std::string>, DesktopError> status();
    /// Starts `program` apart from this one and waits until it answers. What it wrote before it gave up is the error.
    static Result<void, DesktopError> start(const std::string& program);
    /// Asks it to end and waits until it has. False when none ran.
    static Result<bool, DesktopError> stop();
    /// Opens the overlay for a command word; false for an unknown word.
    static Result<bool, DesktopError> capture(const std::string& commandWord);
    /// Has it take back the last capture: whether it did, and the sentence. None when none runs.
    static Result<std::optional<std::pair<bool, std::string>>, DesktopError> undo();
    /// The desktop program that belongs to this one: beside it, or where the build puts it. Empty when there is none.
    static std::string findProgram();
};
} // namespace snipwren
