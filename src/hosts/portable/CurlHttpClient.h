#pragma once

#include <string>
#include <vector>

#include "platform/HttpClient.h"

namespace snipwren {
/// HttpClient over libcurl: the system's certificate store and proxy variables, http and https only, no cookies, one
/// connection per request. A loopback address never goes through a proxy. Thread safe.
class CurlHttpClient final : public HttpClient {
public:
    static constexpr int maxRedirects = 5;
    static constexpr std::size_t maxHeaderBytes = 256 * 1024;

    /// For tests only: certificates trusted besides the system's, and host names served from elsewhere in the form
    /// "HOST:PORT:CONNECT-TO-HOST:PORT".
    struct Overrides {
        std::string extraCaFile;
        std::vector<std::string> connectTo;
    };

    CurlHttpClient() = default;
    explicit CurlHttpClient(Overrides overrides) : overrides_(std::move(overrides)) {}

    Result<HttpResponse, HttpError> send(const HttpRequest& request, std::stop_token stop) override;

private:
    const Overrides overrides_ = {};
};
} // namespace snipwren
