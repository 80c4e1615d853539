#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace snipwren {
class KeychainHelper;
class LoopbackListeners;

enum class ContextClientError { notRunning, foreignListener, noToken, refused, connectionLost, timedOut };
/// The sentence for the user; it says what to do.
std::string_view message(ContextClientError error);

/// A connection of one of our own programs to the context server. The token leaves only after the listener has turned
/// out to be a program of this user. Not thread safe.
class ContextClient {
public:
    static Result<ContextClient, ContextClientError> connect(unsigned short port, KeychainHelper& secrets,
                                                             LoopbackListeners& listeners);
    ContextClient(ContextClient&&) noexcept;
    ContextClient& operator=(ContextClient&&) noexcept;
    ~ContextClient();

    /// To wait for incoming lines on, together with others.
    int descriptor() const;
    /// Waits until the line is on its way.
    Result<void, ContextClientError> send(std::string_view line);
    /// The lines that have come, without waiting; an error when the connection is over.
    Result<std::vector<std::string>, ContextClientError> receive();
    /// The next line, after waiting for it.
    Result<std::string, ContextClientError> next(std::chrono::milliseconds atMost);

private:
    struct State;
    explicit ContextClient(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};
} // namespace snipwren
