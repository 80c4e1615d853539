#define CPPHTTPLIB_OPENSSL_SUPPORT
#include "support/LoopbackServer.h"

#include <cstdlib>
#include <mutex>
#include <thread>

#include <httplib.h>

#include "base/Text.h"

#if defined(__SANITIZE_THREAD__)
// The web server comes from a library of the system that was built without the sanitizer: its locks go unseen.
extern "C" const char* __tsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier): the sanitizer's name.
extern "C" const char* __tsan_default_suppressions() { return "race:libcpp-httplib\n"; }
#endif

namespace snipwren {
struct LoopbackServer::State {
    std::unique_ptr<httplib::Server> server;
    Handler handler;
    std::thread thread;
    int port = -1;
    bool secure = false;
    std::mutex mutex;
    std::vector<LoopbackRequest> requests;
};

LoopbackServer::LoopbackServer(Handler handler, const TestCertificate* certificate)
    : state_(std::make_unique<State>()) {
    State& state = *state_;
    state.handler = std::move(handler);
    state.secure = certificate != nullptr;
    if (certificate)
        state.server = std::make_unique<httplib::SSLServer>(certificate->certificateFile().c_str(),
                                                            certificate->keyFile().c_str());
    else
        state.server = std::make_unique<httplib::Server>();
    state.server->set_keep_alive_max_count(1);
    const auto answer = [&state](const httplib::Request& from, httplib::Response& to) {
        LoopbackRequest request{from.method, from.target, {}, from.body};
        for (const auto& [name, value] : from.headers) request.headers[asciiLowercased(name)] = value;
        {
            const std::lock_guard lock(state.mutex);
            state.requests.push_back(request);
        }
        const LoopbackReply reply = state.handler(request);
        to.status = reply.status;
        for (const auto& [name, value] : reply.headers) to.set_header(name.c_str(), value);
        to.set_content(reply.body, reply.contentType.c_str());
    };
    state.server->Get(".*", answer);
    state.server->Post(".*", answer);
    state.port = state.server->bind_to_any_port("127.0.0.1");
    if (state.port <= 0) std::abort();
    state.thread = std::thread([&state] { state.server->listen_after_bind(); });
    while (!state.server->is_running()) std::this_thread::yield();
}

LoopbackServer::~LoopbackServer() {
    state_->server->stop();
    state_->thread.join();
}

int LoopbackServer::port() const { return state_->port; }

std::string LoopbackServer::url(const std::string& target) const {
    return (state_->secure ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(state_->port) + target;
}

std::vector<LoopbackRequest> LoopbackServer::requests() const {
    const std::lock_guard lock(state_->mutex);
    return state_->requests;
}
} // namespace snipwren
