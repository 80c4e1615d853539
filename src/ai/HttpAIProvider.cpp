#include "ai/HttpAIProvider.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/Text.h"
#include "store/KeychainHelper.h"

namespace snipwren {
namespace {
bool isLoopbackHost(std::string_view host) {
    if (host == "localhost" || host == "[::1]") return true;
    // Digits and dots only, so that "127.0.0.1.example.com" is somebody else.
    return host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string_view::npos;
}
} // namespace

bool HttpAIProvider::isAllowedBaseURL(std::string_view url) {
    const auto unclean = [](char c) { return c <= ' ' || c >= 0x7F || c == '\\' || c == '@' || c == '?' || c == '#'; };
    const std::string lower = asciiLowercased(url);
    if (std::any_of(lower.begin(), lower.end(), unclean)) return false;
    const bool secure = lower.starts_with("https://");
    if (!secure && !lower.starts_with("http://")) return false;
    const std::string_view rest = std::string_view(lower).substr(secure ? 8 : 7);
    std::string_view host = rest.substr(0, rest.find('/'));
    const std::size_t colon = host.rfind(':');
    if (colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string_view::npos)
            return false;
        host = host.substr(0, colon);
    }
    return !host.empty() && (secure || isLoopbackHost(host));
}

std::string HttpAIProvider::modelName() const {
    const std::string set(trimmed(defaults_.string(traits_.modelSetting).value_or("")));
    return set.empty() ? traits_.defaultModel : set;
}

std::string HttpAIProvider::displayName() const { return fmt::format("{} ({})", traits_.name, modelName()); }

std::optional<std::string> HttpAIProvider::apiKey() const {
    const auto stored = secrets_.load(keyOwner, traits_.identifier);
    // Keys are pasted, often with a line break.
    std::string key(trimmed(stored.value_or("")));
    if (key.empty()) return std::nullopt;
    return key;
}

bool HttpAIProvider::hasDefaultAddress() const {
    return trimmed(defaults_.string(traits_.addressSetting).value_or("")).empty();
}

Result<std::string, AIError> HttpAIProvider::address(std::string_view path) const {
    if (hasDefaultAddress()) return traits_.defaultAddress + std::string(path);
    const std::string set = defaults_.string(traits_.addressSetting).value_or("");
    std::string_view base = trimmed(set);
    if (!isAllowedBaseURL(base))
        return unexpected(AIError{AIErrorKind::badSetting,
                                  fmt::format("The setting {} must be an https address, or an http address of this "
                                              "computer. Try: snipwren config set {} http://127.0.0.1:8080",
                                              traits_.addressSetting, traits_.addressSetting)});
    while (base.ends_with('/')) base.remove_suffix(1);
    // Servers are often named with the first part of the path.
    if (base.ends_with("/v1") && path.starts_with("/v1/")) base.remove_suffix(3);
    return std::string(base) + std::string(path);
}

AIError HttpAIProvider::describe(const HttpError& error) const {
    switch (error.kind) {
    case HttpErrorKind::cancelled: return {AIErrorKind::cancelled, "The request was cancelled."};
    case HttpErrorKind::timeout: return {AIErrorKind::timeout, fmt::format("{} did not answer in time.", traits_.name)};
    case HttpErrorKind::invalidResponse: return {AIErrorKind::badResponse, "Invalid network response."};
    case HttpErrorKind::invalidRequest:
    case HttpErrorKind::transport:
    case HttpErrorKind::tls:
    case HttpErrorKind::tooLarge:
    case HttpErrorKind::redirectRefused:
    case HttpErrorKind::stoppedBySink: break;
    }
    return {AIErrorKind::network, fmt::format("{} could not be reached. {}", traits_.name, error.description)};
}

AIError HttpAIProvider::statusError(const HttpResponse& response, const std::string& model,
                                    std::string_view text) const {
    const int status = response.status;
    const bool namesModel = response.body.find("model") != std::string::npos;
    if ((status == 404 && namesModel) || response.body.find("model_not_found") != std::string::npos)
        return {AIErrorKind::unknownModel,
                fmt::format("{} does not know the model \"{}\". Choose another one with the setting {}.", traits_.name,
                            sanitizedUtf8(model), traits_.modelSetting),
                status};
    return {status == 401 ? AIErrorKind::invalidKey : AIErrorKind::httpStatus, fmt::format("{} {}", text, status),
            status};
}

Result<HttpRequest, AIError> HttpAIProvider::chatRequest(const AIRequest& request, bool streams) const {
    auto url = address(traits_.chatPath);
    if (!url) return unexpected(url.error());
    auto headers = authentication();
    if (!headers) return unexpected(headers.error());
    HttpRequest http;
    http.method = "POST";
    http.url = *std::move(url);
    http.headers = *std::move(headers);
    http.headers.push_back({"Content-Type", "application/json"});
    http.body = body(request, model(request), streams);
    http.connectTimeout = http.timeout = traits_.timeout;
    http.totalTimeout = wholeTimeout;
    http.maxResponseBytes = maxReplyBytes;
    return http;
}

Result<AIAnswer, AIError> HttpAIProvider::generate(const AIRequest& request, std::stop_token stop) {
    const auto http = chatRequest(request, false);
    if (!http) return unexpected(http.error());
    const auto reply = http_.send(*http, stop);
    if (!reply) return unexpected(describe(reply.error()));
    if (!reply->succeeded()) return unexpected(statusError(*reply, model(request), "HTTP Error"));
    auto answer = parseReply(reply->body);
    if (!answer) return unexpected(AIError{AIErrorKind::badResponse, traits_.parseError});
    return *std::move(answer);
}

Result<AIAnswer, AIError> HttpAIProvider::stream(const AIRequest& request, const TextHandler& onText,
                                                 std::stop_token stop) {
    auto http = chatRequest(request, true);
    if (!http) return unexpected(http.error());
    AIStreamReader reader(traits_.format, onText);
    http->bodySink = [&](std::string_view bytes, std::optional<std::uint64_t>) { return reader.feed(bytes); };
    const auto reply = http_.send(*http, stop);
    // What the reader found out counts for more than how the connection ended after it.
    const bool readerDecided = reader.isComplete() || (!reply && reply.error().kind == HttpErrorKind::stoppedBySink);
    if (!reply && !readerDecided) return unexpected(describe(reply.error()));
    if (reply && !reply->succeeded()) return unexpected(statusError(*reply, model(request), traits_.streamStatusError));
    return reader.finish();
}

Result<bool, AIError> HttpAIProvider::validateApiKey(std::stop_token stop) {
    AIRequest smallest;
    smallest.prompt = "Hi";
    smallest.maxTokens = 1;
    const auto answer = generate(smallest, stop);
    if (answer) return true;
    if (answer.error().status == 401) return false;
    return unexpected(answer.error());
}

std::optional<AIError> HttpAIProvider::whyUnusable(std::stop_token) {
    if (const auto url = address(traits_.chatPath); !url) return url.error();
    if (const auto headers = authentication(); !headers) return headers.error();
    return std::nullopt;
}
} // namespace snipwren
