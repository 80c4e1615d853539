#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace snipwren {
/// A socket on 127.0.0.1 that answers each connection byte for byte as the test says: cut short, in single bytes, or not
/// at all. Connections are served one at a time.
class ScriptedServer {
public:
    /// One connection, after its request was read whole.
    class Connection {
    public:
        const std::string& request() const { return request_; }
        /// False when the client is gone.
        bool send(std::string_view bytes);
        /// Each byte in a packet of its own.
        bool sendBytewise(std::string_view bytes);
        /// Waits until the client closes, or the test ends.
        void waitForClose();
        /// Waits until the test calls release().
        void waitForRelease();

    private:
        friend class ScriptedServer;
        Connection(ScriptedServer& server, int socket) : server_(server), socket_(socket) {}
        ScriptedServer& server_;
        const int socket_;
        std::string request_;
    };
    using Script = std::function<void(Connection&)>;

    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    int port() const { return port_; }
    std::string url(const std::string& target) const { return "http://127.0.0.1:" + std::to_string(port_) + target; }
    /// Lets every present and later waitForRelease() go on.
    void release();
    /// Waits until the script has run this often.
    void waitUntilServed(int times);

private:
    void serve();
    void readRequest(Connection& connection) const;

    const Script script_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> ending_ = false;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool released_ = false;
    int served_ = 0;
    std::thread thread_;
};
} // namespace snipwren
