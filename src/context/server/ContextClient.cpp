#include "context/server/ContextClient.h"

#include <deque>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <poll.h>

#include "context/server/LineBuffer.h"
#include "context/server/MCPServer.h"
#include "platform/LoopbackListeners.h"
#include "store/KeychainHelper.h"

namespace snipwren {
using asio::ip::tcp;

std::string_view message(ContextClientError error) {
    switch (error) {
    case ContextClientError::notRunning:
        return "Snipwren is not running, or its context server is switched off. Start Snipwren and switch the context "
               "server on in its settings, or run: snipwren serve";
    case ContextClientError::foreignListener:
        return "The program that listens on Snipwren's port belongs to another user, so nothing was sent to it. Stop "
               "that "
               "program, then start Snipwren again.";
    case ContextClientError::noToken:
        return "There is no access token yet. Start Snipwren, or run: snipwren context token";
    case ContextClientError::refused:
        return "The context server refused the access token. Restart Snipwren and try again.";
    case ContextClientError::connectionLost:
        return "The connection to Snipwren was lost. Check that Snipwren is still running and try again.";
    case ContextClientError::timedOut: return "Snipwren did not answer in time. Try again.";
    }
    return {};
}

struct ContextClient::State {
    asio::io_context io{1};
    tcp::socket socket{io};
    LineBuffer buffer;
    std::deque<std::string> lines;
};

ContextClient::ContextClient(std::unique_ptr<State> state) : state_(std::move(state)) {}
ContextClient::ContextClient(ContextClient&&) noexcept = default;
ContextClient& ContextClient::operator=(ContextClient&&) noexcept = default;
ContextClient::~ContextClient() = default;

Result<ContextClient, ContextClientError> ContextClient::connect(unsigned short port, KeychainHelper& secrets,
                                                                 LoopbackListeners& listeners) {
    const auto before = listeners.listenerOn(port);
    if (!before) return unexpected(ContextClientError::notRunning);
    if (before->user != listeners.ownUser()) return unexpected(ContextClientError::foreignListener);
    const auto token = secrets.load(KeychainHelper::service, MCPServer::tokenKey, true);
    if (!token || token->empty()) return unexpected(ContextClientError::noToken);
    auto state = std::make_unique<State>();
    asio::error_code error;
    state->socket.connect({asio::ip::address_v4::loopback(), port}, error);
    if (error) return unexpected(ContextClientError::notRunning);
    // The same socket before and after: so it is the one that we are connected to.
    if (listeners.listenerOn(port) != before) return unexpected(ContextClientError::foreignListener);
    state->socket.set_option(tcp::no_delay(true), error);
    ContextClient client(std::move(state));
    if (!client.send("Authorization: Bearer " + *token)) return unexpected(ContextClientError::connectionLost);
    return client;
}

int ContextClient::descriptor() const { return state_->socket.native_handle(); }

Result<void, ContextClientError> ContextClient::send(std::string_view line) {
    std::string bytes(line);
    bytes += '\n';
    asio::error_code error;
    asio::write(state_->socket, asio::buffer(bytes), error);
    if (error) return unexpected(ContextClientError::connectionLost);
    return {};
}

Result<std::vector<std::string>, ContextClientError> ContextClient::receive() {
    std::vector<std::string> lines(std::make_move_iterator(state_->lines.begin()),
                                   std::make_move_iterator(state_->lines.end()));
    state_->lines.clear();
    char bytes[65536];
    asio::error_code error;
    while (lines.empty()) {
        pollfd ready{descriptor(), POLLIN, 0};
        if (::poll(&ready, 1, 0) <= 0) break;
        const std::size_t count = state_->socket.read_some(asio::buffer(bytes), error);
        if (error) return unexpected(ContextClientError::connectionLost);
        const auto block = state_->buffer.append(std::string_view(bytes, count));
        if (!block) return unexpected(ContextClientError::connectionLost);
        LineBuffer::forEachLine(*block, [&](std::string_view line) { lines.emplace_back(line); });
        if (!lines.empty() && lines.front().starts_with("HTTP/1.1 403")) return unexpected(ContextClientError::refused);
    }
    return lines;
}

Result<std::string, ContextClientError> ContextClient::next(std::chrono::milliseconds atMost) {
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    while (state_->lines.empty()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd ready{descriptor(), POLLIN, 0};
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0)
            return unexpected(ContextClientError::timedOut);
        auto lines = receive();
        if (!lines) return unexpected(lines.error());
        state_->lines.assign(std::make_move_iterator(lines->begin()), std::make_move_iterator(lines->end()));
    }
    std::string line = std::move(state_->lines.front());
    state_->lines.pop_front();
    return line;
}
} // namespace snipwren
