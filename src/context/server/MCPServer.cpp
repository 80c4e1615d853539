#include "context/server/MCPServer.h"

#include <atomic>
#include <cerrno>
#include <future>

#include <asio/executor_work_guard.hpp>
#include <asio/post.hpp>

#include "base/Log.h"
#include "base/Random.h"
#include "base/Text.h"
#include "base/ThreadQueue.h"
#include "context/server/LocalSecret.h"
#include "context/server/MCPConnection.h"
#include "context/server/MCPHubManager.h"

namespace snipwren {
using asio::ip::tcp;

/// One stretch of listening, from start to stop, with its threads.
class MCPServer::Session {
public:
    Session(const Dependencies& dependencies, const Options& options)
        : state_(dependencies, options),
          acceptor_(state_.io),
          pause_(state_.io),
          work_(state_.io.get_executor()),
          queue_(MCPServer::queueLabel) {}

    ~Session() {
        if (!running_) return;
        close();
        asio::post(state_.io, [this] { state_.io.stop(); });
        queue_.sync([] {});
        state_.requests.stop();
        state_.slowRequests.stop();
        state_.requests.join();
        state_.slowRequests.join();
    }

    asio::error_code listen() {
        asio::error_code error;
        const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), state_.options.port);
        acceptor_.open(endpoint.protocol(), error);
        // Without it a restart would have to wait until the system has forgotten the old connections.
        if (!error) acceptor_.set_option(tcp::acceptor::reuse_address(true), error);
        if (!error) acceptor_.bind(endpoint, error);
        if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
        if (!error) port_ = acceptor_.local_endpoint(error).port();
        if (error) return error;
        accept();
        running_ = true;
        queue_.async([this] { state_.io.run(); });
        queue_.start();
        return error;
    }

    /// The listener is closed when this returns, the connections when their queue comes to it.
    void close() {
        if (std::exchange(closed_, true)) return;
        std::promise<void> listenerClosed;
        asio::post(state_.io, [&] {
            closeListener();
            asio::post(state_.io, [this] { closeConnections(); });
            listenerClosed.set_value();
        });
        listenerClosed.get_future().wait();
    }
    unsigned short port() const { return port_; }
    bool isListening() const { return !closed_ && !failed_; }

private:
    void closeListener() {
        asio::error_code ignored;
        acceptor_.close(ignored);
        pause_.cancel();
    }

    void closeConnections() {
        const auto connections = state_.activeConnections; // close() takes each out of the map.
        for (const auto& [id, connection] : connections) connection->close();
    }

    void accept() {
        acceptor_.async_accept([this](const asio::error_code& error, tcp::socket socket) {
            if (error == asio::error::operation_aborted || !acceptor_.is_open()) return;
            if (error == asio::error::no_descriptors || error.value() == ENFILE || error == asio::error::no_buffer_space
                || error == asio::error::no_memory || error == asio::error::connection_aborted) {
                state_.use.log.line("MCP Connection failed: " + error.message());
                return acceptLater();
            }
            if (error) {
                state_.use.log.line("❌ Snipwren MCP Server failed to start: " + error.message());
                failed_ = true;
                closeListener();
                return closeConnections();
            }
            handleNewConnection(std::move(socket));
            accept();
        });
    }

    /// Out of descriptors: the waiting client stays in the system's queue, and asking again at once would spin.
    void acceptLater() {
        pause_.expires_after(std::chrono::milliseconds(100));
        pause_.async_wait([this](const asio::error_code& cancelled) {
            if (!cancelled) accept();
        });
    }

    void handleNewConnection(tcp::socket socket) {
        if (state_.activeConnections.size() >= state_.options.maxConnections) {
            state_.use.log.line("MCP Connection closed: " + std::to_string(state_.options.maxConnections)
                                + " are open already");
            return;
        }
        const std::string id = state_.use.random.uuid();
        const auto connection = std::make_shared<MCPConnection>(std::move(socket), id, state_);
        state_.activeConnections[id] = connection;
        connection->start();
    }

    MCPSessionState state_;
    tcp::acceptor acceptor_;
    asio::steady_timer pause_;
    asio::executor_work_guard<asio::io_context::executor_type> work_;
    unsigned short port_ = 0;
    bool running_ = false;
    bool closed_ = false;
    std::atomic<bool> failed_ = false;
    ThreadQueue queue_;
};

MCPServer::MCPServer(const Dependencies& dependencies, const Options& options)
    : dependencies_(dependencies),
      options_(options),
      toggle_(dependencies.notifications.observe(toggleNotification,
                                                 [this](const UserInfo& info) { handleToggleNotification(info); })) {}

MCPServer::~MCPServer() = default;

Result<void, std::string> MCPServer::start() {
    const std::lock_guard lock(mutex_);
    session_.reset();
    (void)getOrCreateMCPToken(dependencies_.secrets,
                              dependencies_.random); // Clients read the file before they connect.
    auto session = std::make_unique<Session>(dependencies_, options_);
    if (const auto error = session->listen()) {
        std::string line = "❌ Failed to start Snipwren MCP Server: " + error.message();
        dependencies_.log.line(line);
        return unexpected(std::move(line));
    }
    dependencies_.log.line("🚀 Snipwren MCP Server listening on 127.0.0.1:" + std::to_string(session->port()));
    session_ = std::move(session);
    return {};
}

void MCPServer::stop() {
    const std::lock_guard lock(mutex_);
    if (session_) session_->close();
}

void MCPServer::shutDown() {
    const std::lock_guard lock(mutex_);
    session_.reset();
}

bool MCPServer::isListening() const {
    const std::lock_guard lock(mutex_);
    return session_ && session_->isListening();
}

unsigned short MCPServer::port() const {
    const std::lock_guard lock(mutex_);
    return session_ && session_->isListening() ? session_->port() : static_cast<unsigned short>(0);
}

void MCPServer::handleToggleNotification(const UserInfo& info) {
    const auto object = info.find("object");
    if (object == info.end()) return;
    const auto* const wanted = std::get_if<std::string>(&object->second);
    if (!wanted) return;
    if (*wanted == "true") {
        (void)start(); // It has logged why it failed.
    } else {
        stop();
    }
}

std::string MCPServer::getOrCreateMCPToken(KeychainHelper& secrets, Random& random) {
    std::string made;
    const auto make = [&] {
        static constexpr char digits[] = "0123456789abcdef";
        for (const char byte : random.bytes(32)) {
            made += digits[(byte >> 4) & 15];
            made += digits[byte & 15];
        }
        if (made.empty()) made = asciiLowercased(replacedAll(random.uuid(), "-", ""));
        return made;
    };
    return loadOrCreateSecret(secrets, tokenKey, make).value_or(made);
}

bool MCPServer::constantTimeEquals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned different = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        different |= static_cast<unsigned>(static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]));
    return different == 0;
}
} // namespace snipwren
