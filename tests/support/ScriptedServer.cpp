#include "support/ScriptedServer.h"

#include <cstdlib>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "base/Text.h"

namespace snipwren {
namespace {
/// False when the test ended first.
bool waitReadable(int socket, const std::atomic<bool>& ending) {
    pollfd waiting{socket, POLLIN, 0};
    while (!ending)
        if (::poll(&waiting, 1, 20) > 0) return true;
    return false;
}
} // namespace

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, generic, length) != 0 || ::listen(listener_, 16) != 0
        || ::getsockname(listener_, generic, &length) != 0)
        std::abort();
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

ScriptedServer::~ScriptedServer() {
    ending_ = true;
    release();
    thread_.join();
    ::close(listener_);
}

void ScriptedServer::release() {
    const std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

void ScriptedServer::waitUntilServed(int times) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return served_ >= times; });
}

void ScriptedServer::serve() {
    while (waitReadable(listener_, ending_)) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) continue;
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        Connection connection(*this, socket);
        readRequest(connection);
        script_(connection);
        ::shutdown(socket, SHUT_WR);
        ::close(socket);
        const std::lock_guard lock(mutex_);
        ++served_;
        changed_.notify_all();
    }
}

void ScriptedServer::readRequest(Connection& connection) const {
    std::string& request = connection.request_;
    std::size_t wanted = std::string::npos;
    char bytes[4096];
    while (request.size() < wanted && waitReadable(connection.socket_, ending_)) {
        const ssize_t count = ::read(connection.socket_, bytes, sizeof bytes);
        if (count <= 0) return;
        request.append(bytes, static_cast<std::size_t>(count));
        const std::size_t end = request.find("\r\n\r\n");
        if (end == std::string::npos) continue;
        const std::string head = asciiLowercased(request.substr(0, end));
        const std::size_t length = head.find("content-length:");
        wanted = end + 4 + (length == std::string::npos ? 0 : std::strtoull(head.c_str() + length + 15, nullptr, 10));
    }
}

bool ScriptedServer::Connection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

bool ScriptedServer::Connection::sendBytewise(std::string_view bytes) {
    for (const char& byte : bytes)
        if (!send({&byte, 1})) return false;
    return true;
}

void ScriptedServer::Connection::waitForClose() {
    char ignored[256];
    while (waitReadable(socket_, server_.ending_))
        if (::read(socket_, ignored, sizeof ignored) <= 0) return;
}

void ScriptedServer::Connection::waitForRelease() {
    std::unique_lock lock(server_.mutex_);
    server_.changed_.wait(lock, [this] { return server_.released_; });
}
} // namespace snipwren
