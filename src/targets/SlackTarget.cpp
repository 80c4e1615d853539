#include "targets/SlackTarget.h"

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "store/KeychainHelper.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

constexpr std::size_t mostPages = 1000;
constexpr std::size_t longestName = 200;
constexpr std::uint64_t largestAnswer = 8ull * 1024 * 1024;
constexpr const char* invalidAnswer = "Invalid JSON response from Slack API";
constexpr const char* notConnected = "Slack not connected — add a token in Settings";

/// At most `longestName` characters, and none that a terminal or a log would obey.
std::string shown(std::string_view text) {
    std::string out;
    std::size_t count = 0;
    for (std::size_t i = 0; i < text.size() && count < longestName;) {
        const char32_t scalar = nextScalar(text, i);
        const bool isControl = scalar < 0x20 || (scalar >= 0x7F && scalar < 0xA0) || scalar == 0x2028
                               || scalar == 0x2029 || (scalar >= 0x202A && scalar <= 0x202E)
                               || (scalar >= 0x2066 && scalar <= 0x2069);
        if (isControl) continue;
        appendUtf8(out, scalar);
        ++count;
    }
    return out;
}

std::string textAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

bool flagAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

/// The permission that the token lacks.
std::string neededScope(const Json& body) {
    const std::string needed = shown(textAt(body, "needed"));
    return needed.empty() ? "users:read" : needed;
}

std::string percentEncoded(std::string_view text) {
    constexpr const char* digits = "0123456789ABCDEF";
    std::string out;
    for (const char c : text) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-'
                             || c == '.' || c == '_' || c == '~';
        if (isPlain) {
            out += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        out += {'%', digits[byte >> 4], digits[byte & 15]};
    }
    return out;
}

std::string rateLimited(const HttpResponse& response) {
    std::string delay(trimmed(response.header("Retry-After").value_or("")));
    if (delay.empty() || delay.size() > 6 || delay.find_first_not_of("0123456789") != std::string::npos)
        delay = "a few";
    return "Slack rate limit — try again in " + delay + (delay == "1" ? " second" : " seconds");
}
} // namespace

std::string SlackTarget::baseUrlFromEnvironment() {
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): read at start-up.
        return std::string_view(value ? value : "");
    };
    const std::string_view address = variable("SNIPWREN_SLACK_URL");
    if (variable("SW_TEST_MODE") != "1") return defaultBaseUrl;
    for (const std::string_view host : {"http://127.0.0.1:", "http://localhost:", "http://[::1]:"}) {
        if (address.substr(0, host.size()) != host) continue;
        // Nothing but a port may follow: "localhost:1@elsewhere" is another server.
        const std::string_view port = address.substr(host.size());
        if (!port.empty() && port.size() <= 5 && port.find_first_not_of("0123456789") == std::string_view::npos)
            return std::string(address);
    }
    return defaultBaseUrl;
}

std::optional<std::string> SlackTarget::readiness() const {
    const auto key = token();
    if (key) return std::nullopt;
    return key.error().description;
}

CaptureFailureGuide SlackTarget::failureGuide(std::string_view) const {
    return {"Capture Targets", "slack", "Open Slack settings"};
}

Result<std::string, SlackTarget::Failure> SlackTarget::token() const {
    const std::optional<std::string> stored = to_.secrets.load(tokenOwner, tokenKey);
    std::string token(trimmed(stored.value_or("")));
    // A line feed inside would begin another header.
    const bool usable = std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < 0x7F; });
    if (token.empty() || !usable) return unexpected(Failure{notConnected, {}});
    return token;
}

HttpRequest SlackTarget::request(const std::string& method, const std::string& pathAndQuery,
                                 const std::string& token) const {
    HttpRequest request;
    request.method = method;
    request.url = to_.baseUrl + pathAndQuery;
    request.headers = {{"Authorization", "Bearer " + token}, {"Content-Type", "application/json; charset=utf-8"}};
    request.timeout = requestTimeout;
    request.totalTimeout = requestTimeout;
    request.maxResponseBytes = largestAnswer;
    return request;
}

Result<SlackTarget::Options, SlackTarget::Failure> SlackTarget::fetchAllPages(const std::string& pathAndQuery,
                                                                              const std::string& token, Kind kind,
                                                                              const std::stop_token& stop) const {
    Options options;
    std::string cursor;
    for (std::size_t page = 0; page < mostPages; ++page) {
        const std::string next = cursor.empty() ? std::string() : "&cursor=" + percentEncoded(cursor);
        const auto response = to_.http.send(request("GET", pathAndQuery + next, token), stop);
        if (!response) return unexpected(Failure{response.error().description, {}});
        if (response->status == 429) return unexpected(Failure{rateLimited(*response), {}});
        if (response->status != 200)
            return unexpected(
                Failure{"Failed to connect to Slack API (HTTP " + std::to_string(response->status) + ")", {}});
        const Json body = Json::parse(response->body, nullptr, false);
        if (!body.is_object()) return unexpected(Failure{invalidAnswer, {}});
        if (!flagAt(body, "ok")) {
            const std::string error = shown(textAt(body, "error"));
            return unexpected(Failure{"Slack API Error: " + (error.empty() ? "Unknown Slack error" : error),
                                      error == "missing_scope" ? neededScope(body) : ""});
        }
        if (const auto list = body.find(kind == Kind::channels ? "channels" : "members");
            list != body.end() && list->is_array()) {
            for (const Json& element : *list) {
                if (!element.is_object() || flagAt(element, "deleted") || flagAt(element, "is_bot")) continue;
                const std::string id = shown(textAt(element, "id"));
                const std::string name = shown(textAt(element, "name"));
                if (!id.empty() && !name.empty()) options.push_back({id, (kind == Kind::channels ? "#" : "@") + name});
            }
        }
        const auto metadata = body.find("response_metadata");
        const std::string following =
            metadata != body.end() && metadata->is_object() ? textAt(*metadata, "next_cursor") : std::string();
        if (following.empty() || following == cursor) return options; // A cursor that stands still would never end.
        cursor = following;
    }
    return options;
}

std::vector<PickerOption> SlackTarget::pickerOptions(std::stop_token stop) {
    const auto cached = [this] {
        Options all = cachedChannels_;
        all.insert(all.end(), cachedUsers_.begin(), cachedUsers_.end());
        return all;
    };
    {
        const std::lock_guard lock(mutex_);
        if (hasLoadedCache_ && to_.clock.now() - cacheLoadedAt_ < cacheLifetime) return cached();
    }
    const auto failed = [&](const std::string& description) {
        to_.log.line("❌ SlackTarget: Failed to fetch Slack resources: " + description);
    };
    const auto key = token();
    Result<Options, Failure> channels = unexpected(Failure{});
    Result<Options, Failure> users = unexpected(Failure{});
    if (key) {
        {
            std::jthread other([&] { users = fetchAllPages("/api/users.list?limit=200", *key, Kind::users, stop); });
            channels = fetchAllPages(
                "/api/conversations.list?types=public_channel,private_channel&exclude_archived=true&limit=200", *key,
                Kind::channels, stop);
        }
        // A token that may post but not list people still reaches every channel.
        const bool onlyUsersMissing = channels && !users && !users.error().missingScope.empty();
        if (channels && (users || onlyUsersMissing)) {
            const bool complete = users.has_value();
            if (!complete)
                failed(users.error().description + " (the token lacks the scope " + users.error().missingScope + ")");
            store(*std::move(channels), std::move(users).value_or(Options()), complete);
        } else {
            failed(channels ? users.error().description : channels.error().description);
        }
    } else {
        failed(key.error().description);
    }
    const std::lock_guard lock(mutex_);
    return cached();
}

void SlackTarget::store(Options channels, Options users, bool complete) {
    const std::lock_guard lock(mutex_);
    cachedChannels_ = std::move(channels);
    cachedUsers_ = std::move(users);
    hasLoadedCache_ = complete;
    cacheLoadedAt_ = to_.clock.now();
    Options all = cachedChannels_;
    all.insert(all.end(), cachedUsers_.begin(), cachedUsers_.end());
    filter_.setOptions(std::move(all));
}

void SlackTarget::resetCache() { store({}, {}, false); }

void SlackTarget::injectMockData(std::vector<PickerOption> channels, std::vector<PickerOption> users) {
    store(std::move(channels), std::move(users), true);
}

std::vector<PickerOption> SlackTarget::filteredOptions(const std::string& query) const {
    const std::lock_guard lock(mutex_);
    return filter_.matching(query);
}

Result<CaptureReceipt, CaptureError>
SlackTarget::send(const std::string& text, const std::optional<PickerOption>& selectedOption, CaptureAttempt& attempt) {
    const auto fail = [](int code, std::string description) {
        return unexpected(CaptureError{"SlackTarget", code, std::move(description)});
    };
    enum Code { noSelection = 1, noToken, noConnection, noAnswer, refused };
    if (!selectedOption) return fail(noSelection, "Please select a valid Slack channel from the target options.");
    const auto key = token();
    if (!key) return fail(noToken, key.error().description);
    HttpRequest post = request("POST", "/api/chat.postMessage", *key);
    // The identifier lets the service see that a message which is posted again, after an answer that was lost, is the same.
    post.body = Json{{"channel", selectedOption->id},
                     {"text", std::string(trimmed(text))},
                     {"client_msg_id", attempt.captureId()}}
                    .dump(-1, ' ', false, Json::error_handler_t::replace);
    const auto response = to_.http.send(post, attempt.stop());
    if (!response) return fail(noConnection, response.error().description);
    if (response->status != 200) return fail(noConnection, "Failed to connect to Slack API (HTTP error)");
    const Json body = Json::parse(response->body, nullptr, false);
    if (!body.is_object()) return fail(noAnswer, invalidAnswer);
    if (!flagAt(body, "ok")) {
        const std::string error = shown(textAt(body, "error"));
        return fail(refused, "Slack API Error: " + (error.empty() ? "Unknown Slack error" : error));
    }
    const std::string conversation = shown(selectedOption->displayName);
    to_.log.line("📝 SlackTarget: Successfully posted captured message to Slack channel '" + conversation + "'");
    return CaptureReceipt{"Posted to " + conversation, std::nullopt, std::nullopt, false, {}};
}
} // namespace snipwren
