#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>

#include "context/server/LineBuffer.h"
#include "context/server/MCPOutbox.h"
#include "context/server/MCPServer.h"

namespace snipwren {
class MCPConnection;

/// What the connections of one listening session share. Everything but the pools and what they call belongs to the
/// session's queue.
struct MCPSessionState {
    MCPSessionState(const MCPServer::Dependencies& using_, const MCPServer::Options& with);

    const MCPServer::Dependencies use;
    const MCPServer::Options options;
    asio::io_context io{1};
    /// Declared after `io`: their jobs post to it.
    asio::thread_pool requests;
    asio::thread_pool slowRequests;
    std::map<std::string, std::shared_ptr<MCPConnection>> activeConnections;
    /// One read buffer for all: an idle connection then costs none.
    std::vector<char> readBuffer;
};

/// One client: the header line, then the message loop. Lives on the session's queue.
class MCPConnection : public std::enable_shared_from_this<MCPConnection> {
public:
    static constexpr std::size_t maxHeader = 1024;
    static constexpr std::size_t maxChunk = 65536;
    /// Reading pauses while this much of what was read waits to be handled.
    static constexpr std::size_t maxUnhandled = std::size_t{4} << 20;

    MCPConnection(asio::ip::tcp::socket socket, std::string id, MCPSessionState& session);
    void start();
    /// Cancels everything, and forgets the connection here and in the hub.
    void close();

private:
    void waitReadable();
    void readable();
    void receiveAuthHeader();
    void judgeAuthHeader(bool complete);
    void refuse();
    void startMessageLoop(const std::string& leftover);
    void receiveMessages();
    void processBuffer(std::string_view bytes);
    void handle(std::shared_ptr<std::string> block, bool slow);
    void handled(std::size_t bytes);
    void peerCompleted();
    void closeWhenDone();
    void flush();

    asio::ip::tcp::socket socket_;
    asio::steady_timer deadline_;
    const std::string id_;
    MCPSessionState& session_;
    std::shared_ptr<MCPOutbox> outbox_;
    std::stop_source stop_;
    std::string header_;
    LineBuffer lines_;
    std::string writing_;
    std::size_t unhandled_ = 0;
    bool authenticated_ = false;
    bool reading_ = false;
    bool completed_ = false;
    bool closed_ = false;
};
} // namespace snipwren
