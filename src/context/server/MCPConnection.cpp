#include "context/server/MCPConnection.h"

#include <chrono>

#include <asio/post.hpp>
#include <asio/write.hpp>

#include "base/Log.h"
#include "base/Random.h"
#include "context/server/JsonRpc.h"
#include "context/server/JsonRpcHandler.h"
#include "context/server/MCPHubManager.h"

namespace snipwren {
namespace {
constexpr std::string_view forbidden = "HTTP/1.1 403 Forbidden\r\nContent-Type: text/plain\r\nConnection: close\r\n\r\n"
                                       "Forbidden: Invalid Token\n";
constexpr std::string_view headerStart = "Authorization: Bearer ";

/// Handles the lines of one block on a pool thread and puts the replies into the outbox, whole, in batches: one wake-up
/// for many replies, but none is held back for longer than a millisecond of work.
class BlockRunner {
public:
    BlockRunner(JsonRpcHandler& handler, Log& log, MCPOutbox& outbox, const std::string& connectionId,
                const std::stop_token& stop)
        : handler_(handler),
          log_(log),
          outbox_(outbox),
          connectionId_(connectionId),
          stop_(stop) {}

    /// `postpone` takes the lines whose requests may take long; empty where they are to be handled here.
    void run(std::string_view block, const std::function<void(std::string_view)>& postpone) {
        lastPut_ = std::chrono::steady_clock::now();
        LineBuffer::forEachLine(block, [&](std::string_view line) {
            if (!stop_.stop_requested()) handleJSONRPCMessage(line, postpone);
        });
        if (!replies_.empty()) outbox_.put(replies_);
    }

private:
    void handleJSONRPCMessage(std::string_view line, const std::function<void(std::string_view)>& postpone) {
        const auto request = JsonRpc::read(line);
        if (!request) {
            // The line itself may hold the user's words, so it is not repeated.
            log_.line("❌ Failed to parse JSON-RPC message: " + std::to_string(line.size())
                      + " bytes that are not a JSON object");
            return;
        }
        if (!request->method) return reply(JsonRpc::error(request->id, jsonRpcCode::invalidRequest, "Invalid Request"));
        const std::string_view params = request->params == "null" ? "{}" : request->params;
        if (params.front() != '{')
            return reply(
                JsonRpc::error(request->id, jsonRpcCode::invalidParams, "Invalid params: an object is required"));
        if (postpone && handler_.mayTakeLong(*request->method)) return postpone(line);
        reply(handler_.handleRequest(*request->method, params, request->id, connectionId_, stop_));
    }

    void reply(const std::string& response) {
        replies_ += response;
        replies_ += '\n';
        const auto now = std::chrono::steady_clock::now();
        if (replies_.size() < 32768 && now - lastPut_ < std::chrono::milliseconds(1)) return;
        outbox_.put(replies_);
        replies_.clear();
        lastPut_ = now;
    }

    JsonRpcHandler& handler_;
    Log& log_;
    MCPOutbox& outbox_;
    const std::optional<std::string> connectionId_;
    const std::stop_token stop_;
    std::string replies_;
    std::chrono::steady_clock::time_point lastPut_;
};
} // namespace

MCPSessionState::MCPSessionState(const MCPServer::Dependencies& using_, const MCPServer::Options& with)
    : use(using_),
      options(with),
      requests(2),
      slowRequests(4),
      readBuffer(MCPConnection::maxChunk) {}

MCPConnection::MCPConnection(asio::ip::tcp::socket socket, std::string id, MCPSessionState& session)
    : socket_(std::move(socket)),
      deadline_(session.io),
      id_(std::move(id)),
      session_(session) {}

void MCPConnection::start() {
    asio::error_code error;
    socket_.non_blocking(true, error);
    if (!error) socket_.set_option(asio::ip::tcp::no_delay(true), error);
    if (error) {
        session_.use.log.line("MCP Connection failed: " + error.message());
        return close();
    }
    outbox_ = std::make_shared<MCPOutbox>(session_.options.maxUnsent, [&io = session_.io, weak = weak_from_this()] {
        asio::post(io, [weak] {
            if (const auto self = weak.lock()) self->flush();
        });
    });
    deadline_.expires_after(session_.options.authenticationTime);
    deadline_.async_wait([self = shared_from_this()](const asio::error_code& cancelled) {
        if (cancelled || self->closed_ || self->authenticated_) return;
        self->session_.use.log.line("MCP Connection closed: no valid header line came in time");
        self->refuse();
    });
    waitReadable();
}

void MCPConnection::close() {
    if (closed_) return;
    closed_ = true;
    stop_.request_stop();
    if (outbox_) outbox_->close();
    deadline_.cancel();
    asio::error_code ignored; // A socket that fails to close is gone too.
    socket_.close(ignored);
    session_.use.hub.forget(id_);
    session_.activeConnections.erase(id_);
}

void MCPConnection::waitReadable() {
    if (reading_ || closed_ || completed_) return;
    reading_ = true;
    socket_.async_wait(asio::ip::tcp::socket::wait_read, [self = shared_from_this()](const asio::error_code& error) {
        self->reading_ = false;
        if (!error && !self->closed_ && !self->completed_) self->readable();
    });
}

void MCPConnection::readable() { authenticated_ ? receiveMessages() : receiveAuthHeader(); }

void MCPConnection::receiveAuthHeader() {
    char bytes[maxHeader];
    asio::error_code error;
    const std::size_t count = socket_.read_some(asio::buffer(bytes, maxHeader - header_.size()), error);
    if (error == asio::error::would_block) return waitReadable();
    if (error == asio::error::eof) return judgeAuthHeader(true);
    if (error) {
        session_.use.log.line("Error reading auth header: " + error.message());
        return close();
    }
    header_.append(bytes, count);
    judgeAuthHeader(header_.size() == maxHeader);
}

void MCPConnection::judgeAuthHeader(bool complete) {
    // The header may come in pieces. How long we wait depends on its length alone, never on what it says: a wrong
    // beginning must not be told from a right one by the time of the refusal.
    std::string expected(headerStart);
    expected += MCPServer::getOrCreateMCPToken(session_.use.secrets, session_.use.random);
    const std::size_t lineEnd = header_.find('\n');
    if (!complete && lineEnd == std::string::npos && header_.size() < expected.size()) return waitReadable();
    const std::string_view first = trimmed(std::string_view(header_).substr(0, lineEnd));
    if (!MCPServer::constantTimeEquals(first, expected)) return refuse();
    startMessageLoop(lineEnd == std::string::npos ? std::string() : header_.substr(lineEnd + 1));
}

void MCPConnection::refuse() {
    completed_ = true; // Nothing more is read.
    deadline_.cancel();
    asio::async_write(socket_, asio::buffer(forbidden),
                      [self = shared_from_this()](const asio::error_code&, std::size_t) {
                          asio::error_code ignored;
                          self->socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
                          self->close();
                      });
}

void MCPConnection::startMessageLoop(const std::string& leftover) {
    authenticated_ = true;
    deadline_.cancel();
    header_ = {};
    session_.use.hub.connectionOpened(id_,
                                      [outbox = outbox_](const std::string& line) { return outbox->put(line + '\n'); });
    if (!leftover.empty()) processBuffer(leftover);
    waitReadable();
}

void MCPConnection::receiveMessages() {
    asio::error_code error;
    auto& buffer = session_.readBuffer;
    const std::size_t count = socket_.read_some(asio::buffer(buffer), error);
    if (error == asio::error::eof) return peerCompleted();
    if (error && error != asio::error::would_block) {
        session_.use.log.line("Connection message read error: " + error.message());
        return close();
    }
    if (!error) processBuffer(std::string_view(buffer.data(), count));
    if (unhandled_ < maxUnhandled) waitReadable();
}

void MCPConnection::processBuffer(std::string_view bytes) {
    auto block = lines_.append(bytes);
    if (!block) {
        session_.use.log.line("Connection message read error: a line is longer than "
                              + std::to_string(LineBuffer::maxLine >> 20) + " MiB");
        return close();
    }
    if (!block->empty()) handle(std::make_shared<std::string>(std::move(*block)), false);
}

void MCPConnection::handle(std::shared_ptr<std::string> block, bool slow) {
    unhandled_ += block->size();
    // The job keeps the outbox, not the connection: the socket then dies on its own queue.
    const auto job = [&session = session_, weak = weak_from_this(), outbox = outbox_, id = id_,
                      stop = stop_.get_token(), block = std::move(block), slow] {
        std::function<void(std::string_view)> postpone;
        if (!slow)
            postpone = [&](std::string_view line) {
                asio::post(session.io, [weak, one = std::make_shared<std::string>(line)] {
                    if (const auto self = weak.lock()) self->handle(one, true);
                });
            };
        BlockRunner(session.use.handler, session.use.log, *outbox, id, stop).run(*block, postpone);
        asio::post(session.io, [weak, size = block->size()] {
            if (const auto self = weak.lock()) self->handled(size);
        });
    };
    if (slow) {
        asio::post(session_.slowRequests, job);
    } else {
        asio::post(session_.requests, job);
    }
}

void MCPConnection::handled(std::size_t bytes) {
    unhandled_ -= bytes;
    if (unhandled_ < maxUnhandled) waitReadable();
    closeWhenDone();
}

void MCPConnection::peerCompleted() {
    // A client may have closed only its own direction (a script that pipes its requests in): what it asked is still
    // answered, then the connection ends.
    completed_ = true;
    session_.use.hub.forget(id_);
    closeWhenDone();
}

void MCPConnection::closeWhenDone() {
    if (completed_ && authenticated_ && unhandled_ == 0 && outbox_->isEmpty()) close();
}

void MCPConnection::flush() {
    if (closed_) return;
    if (outbox_->hasOverflowed()) {
        session_.use.log.line("MCP Connection closed: its client does not read what it is sent");
        return close();
    }
    if (!outbox_->take(writing_)) return;
    asio::async_write(socket_, asio::buffer(writing_),
                      [self = shared_from_this()](const asio::error_code& error, std::size_t) {
                          if (self->closed_) return;
                          if (error) self->session_.use.log.line("Error sending response: " + error.message());
                          self->outbox_->sent();
                          self->flush();
                          self->closeWhenDone();
                      });
}
} // namespace snipwren
