#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/TestCertificate.h"

namespace snipwren {
struct LoopbackRequest {
    std::string method;
    /// With the query, as sent.
    std::string target;
    /// Names in lower case.
    std::map<std::string, std::string> headers;
    std::string body;
};

struct LoopbackReply {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers = {};
};

/// A real web server on a free port of 127.0.0.1, with or without TLS. It keeps every request it got.
class LoopbackServer {
public:
    /// Runs on a thread of the server.
    using Handler = std::function<LoopbackReply(const LoopbackRequest&)>;
    explicit LoopbackServer(Handler handler, const TestCertificate* certificate = nullptr);
    ~LoopbackServer();

    int port() const;
    std::string url(const std::string& target) const;
    std::vector<LoopbackRequest> requests() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};
} // namespace snipwren
