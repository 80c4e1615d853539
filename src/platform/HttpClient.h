#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "base/Text.h"

namespace snipwren {
struct HttpHeader {
    std::string name;
    std::string value;
};

struct HttpRequest {
    /// Takes the next bytes of the body and the whole length when the server names one. False stops the transfer.
    using BodySink = std::function<bool(std::string_view bytes, std::optional<std::uint64_t> contentLength)>;
    /// Asked with the absolute address of each redirect; true follows it.
    using RedirectRule = std::function<bool(const std::string& url)>;

    std::string method = "GET";
    std::string url;
    std::vector<HttpHeader> headers;
    std::string body;
    /// Until the connection stands, TLS included.
    std::chrono::milliseconds connectTimeout{15'000};
    /// The longest silence: the request fails when no byte moves for this long.
    std::chrono::milliseconds timeout{15'000};
    /// For the whole request; none when a long transfer that moves is welcome.
    std::optional<std::chrono::milliseconds> totalTimeout;
    std::uint64_t maxResponseBytes = 16ull * 1024 * 1024;
    /// Empty: a redirect is an answer like any other.
    RedirectRule followRedirect;
    /// Gets the body of a 2xx answer in pieces as they arrive; the bodies of other answers stay in HttpResponse::body.
    BodySink bodySink;
};

struct HttpResponse {
    int status = 0;
    std::vector<HttpHeader> headers;
    std::string body;
    /// Where the answer came from, after redirects.
    std::string url;

    bool succeeded() const { return status >= 200 && status < 300; }
    /// The first header of that name, in any letter case.
    std::optional<std::string> header(std::string_view name) const {
        const std::string wanted = asciiLowercased(name);
        for (const HttpHeader& candidate : headers)
            if (asciiLowercased(candidate.name) == wanted) return candidate.value;
        return std::nullopt;
    }
};

enum class HttpErrorKind {
    invalidRequest,
    transport,
    tls,
    timeout,
    /// Something answered, but it does not speak HTTP.
    invalidResponse,
    tooLarge,
    redirectRefused,
    stoppedBySink,
    cancelled,
};

struct HttpError {
    HttpErrorKind kind = HttpErrorKind::transport;
    /// A sentence for the user. It never holds headers, bodies or the query of an address.
    std::string description;
};

/// Requests over http and https. Certificates are always verified. Thread safe.
class HttpClient {
public:
    virtual ~HttpClient() = default;
    /// Blocks until the answer is complete; a stop request ends it promptly at any point.
    virtual Result<HttpResponse, HttpError> send(const HttpRequest& request, std::stop_token stop) = 0;
};
} // namespace snipwren
