#include "cli/StdioBridge.h"

#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace snipwren {
namespace {
/// How soon a subscription follows a program that was started again.
constexpr int retryMilliseconds = 2000;
/// How long a client that has closed its side gets for the answers it is owed.
constexpr auto farewell = std::chrono::seconds(30);
} // namespace

StdioBridge::StdioBridge(int in, int out, Connect connect, Capture capture)
    : in_(in),
      out_(out),
      connect_(std::move(connect)),
      capture_(std::move(capture)),
      bridge_({.toClient = [this](const std::string& line) { write(line); },
               .toServer = [this](const std::string& line) { return sendToServer(line); },
               .capture = [this](std::int64_t number,
                                 McpBridge::CaptureRequest request) { startCapture(number, std::move(request)); }}) {}

StdioBridge::~StdioBridge() {
    captures_.reset(); // Waits for the one that runs: a capture is never cut in two.
    for (const int end : wake_)
        if (end >= 0) ::close(end);
}

void StdioBridge::run() {
    if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) wake_[0] = wake_[1] = -1;
    auto deadline = std::chrono::steady_clock::time_point::max();
    while (outputOpen_ && (clientOpen_ || bridge_.isBusy())) {
        // A negative descriptor is passed over.
        pollfd waiting[] = {{clientOpen_ ? in_ : -1, POLLIN, 0},
                            {wake_[0], POLLIN, 0},
                            {server_ ? server_->descriptor() : -1, POLLIN, 0}};
        int timeout = bridge_.lacksSubscription() ? retryMilliseconds : -1;
        if (!clientOpen_) {
            deadline = std::min(deadline, std::chrono::steady_clock::now() + farewell);
            timeout = static_cast<int>(
                std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count());
            if (timeout <= 0) break;
        }
        const int ready = ::poll(waiting, std::size(waiting), timeout);
        if (ready < 0 && errno != EINTR) break;
        if (ready == 0) bridge_.retrySubscription();
        if (ready <= 0) continue;
        if (waiting[2].revents != 0) takeFromServer();
        if (waiting[1].revents != 0) takeOutcomes();
        if (waiting[0].revents != 0) takeFromClient();
    }
    if (outputOpen_) bridge_.clientFinished();
}

void StdioBridge::takeFromClient() {
    char bytes[65536];
    const ssize_t count = ::read(in_, bytes, sizeof bytes);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (count <= 0) {
        clientOpen_ = false;
        // The last line counts without its line feed too.
        const std::string_view rest = trimmed(lines_.rest());
        if (!rest.empty()) bridge_.fromClient(rest);
        return;
    }
    const auto block = lines_.append(std::string_view(bytes, static_cast<std::size_t>(count)));
    if (!block) {
        clientOpen_ = false; // Nothing sensible sends a line of 16 MiB; what follows could not be understood.
        return;
    }
    LineBuffer::forEachLine(*block, [&](std::string_view line) { bridge_.fromClient(line); });
}

void StdioBridge::takeFromServer() {
    const auto lines = server_->receive();
    if (!lines) return dropServer(lines.error());
    for (const std::string& line : *lines) bridge_.fromServer(line);
}

void StdioBridge::dropServer(ContextClientError error) {
    server_.reset();
    bridge_.serverLost(std::string(message(error)));
}

Result<void, std::string> StdioBridge::sendToServer(const std::string& line) {
    if (server_) {
        if (server_->send(line)) return {};
        dropServer(ContextClientError::connectionLost);
    }
    auto connected = connect_();
    if (!connected) return unexpected(std::string(message(connected.error())));
    server_ = std::move(*connected);
    if (!server_->send(line)) return unexpected(std::string(message(ContextClientError::connectionLost)));
    return {};
}

void StdioBridge::startCapture(std::int64_t number, McpBridge::CaptureRequest request) {
    if (!captures_) {
        captures_.emplace("com.snipwren.app.mcpCaptures");
        captures_->start();
    }
    captures_->async([this, number, request = std::move(request)] {
        McpBridge::CaptureOutcome outcome = capture_(request);
        {
            const std::lock_guard lock(mutex_);
            outcomes_.emplace_back(number, std::move(outcome));
        }
        [[maybe_unused]] const auto woken = ::write(wake_[1], "", 1); // A full pipe wakes just as well.
    });
}

void StdioBridge::takeOutcomes() {
    char bytes[64];
    while (::read(wake_[0], bytes, sizeof bytes) > 0) {}
    std::vector<std::pair<std::int64_t, McpBridge::CaptureOutcome>> outcomes;
    {
        const std::lock_guard lock(mutex_);
        outcomes.swap(outcomes_);
    }
    for (const auto& [number, outcome] : outcomes) bridge_.captured(number, outcome);
}

void StdioBridge::write(const std::string& line) {
    const std::string bytes = line + '\n';
    for (std::size_t at = 0; outputOpen_ && at < bytes.size();) {
        const ssize_t count = ::write(out_, bytes.data() + at, bytes.size() - at);
        if (count >= 0) {
            at += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            pollfd room{out_, POLLOUT, 0};
            ::poll(&room, 1, -1);
        } else if (errno != EINTR) {
            outputOpen_ = false; // The client is gone.
        }
    }
}
} // namespace snipwren
