#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace snipwren {
/// A plain client of a server on 127.0.0.1 that speaks in lines. Reading gives up after 20 seconds, so that a server that
/// stays silent fails the test instead of hanging it.
class LineClient {
public:
    explicit LineClient(unsigned short port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connected_ = ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    LineClient(LineClient&& other) noexcept
        : fd_(std::exchange(other.fd_, -1)),
          connected_(other.connected_),
          buffer_(std::move(other.buffer_)) {}
    LineClient(const LineClient&) = delete;
    ~LineClient() { close(); }

    bool isConnected() const { return connected_; }
    int fd() const { return fd_; }
    bool send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count < 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }
    /// The next line without its line feed; none when the server closed the connection.
    std::optional<std::string> line() {
        std::size_t end = 0;
        while ((end = buffer_.find('\n')) == std::string::npos)
            if (!receive()) return std::nullopt;
        std::string text = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return text;
    }
    /// Everything up to the end of the connection.
    std::string all() {
        while (receive()) {}
        return std::move(buffer_);
    }
    /// Ends our direction only; the server can still answer.
    void finishSending() { ::shutdown(fd_, SHUT_WR); }
    void close() {
        if (fd_ >= 0) ::close(std::exchange(fd_, -1));
    }

private:
    bool receive() {
        pollfd waiting{fd_, POLLIN, 0};
        if (::poll(&waiting, 1, 20000) <= 0) return false;
        char bytes[65536];
        const ssize_t count = ::recv(fd_, bytes, sizeof bytes, 0);
        if (count <= 0) return false;
        buffer_.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    int fd_;
    bool connected_ = false;
    std::string buffer_;
};
} // namespace snipwren
