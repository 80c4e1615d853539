#include "hosts/portable/CurlHttpClient.h"

#include <algorithm>
#include <array>
#include <memory>

#include <curl/curl.h>
#include <fmt/format.h>

#include "base/Text.h"

namespace snipwren {
namespace {
using Steady = std::chrono::steady_clock;

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* value) const {
        Free(value);
    }
};
using EasyHandle = std::unique_ptr<CURL, Freed<curl_easy_cleanup>>;
using MultiHandle = std::unique_ptr<CURLM, Freed<curl_multi_cleanup>>;
using UrlHandle = std::unique_ptr<CURLU, Freed<curl_url_cleanup>>;
using StringList = std::unique_ptr<curl_slist, Freed<curl_slist_free_all>>;

bool libraryReady() {
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return ready;
}

void append(StringList& list, const std::string& line) {
    if (curl_slist* grown = curl_slist_append(list.get(), line.c_str())) {
        (void)list.release();
        list.reset(grown);
    }
}

struct Address {
    std::string scheme, host, port;
    bool sameOrigin(const Address& other) const {
        return scheme == other.scheme && host == other.host && port == other.port;
    }
    bool isLoopback() const { return host == "localhost" || host == "[::1]" || host.starts_with("127."); }
};

std::optional<Address> parsedAddress(const std::string& url) {
    const UrlHandle handle(curl_url());
    if (!handle || url.find('\0') != std::string::npos) return std::nullopt;
    if (curl_url_set(handle.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return std::nullopt;
    const auto part = [&](CURLUPart which) -> std::string {
        char* value = nullptr;
        if (curl_url_get(handle.get(), which, &value, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
        std::string text(value);
        curl_free(value);
        return text;
    };
    Address address{asciiLowercased(part(CURLUPART_SCHEME)), asciiLowercased(part(CURLUPART_HOST)),
                    part(CURLUPART_PORT)};
    if ((address.scheme != "http" && address.scheme != "https") || address.host.empty()) return std::nullopt;
    return address;
}

/// A line break would let a value smuggle in further headers.
bool isCleanHeader(const HttpHeader& header) {
    const auto unclean = [](char c) { return c == '\r' || c == '\n' || c == '\0'; };
    return !header.name.empty() && header.name.find(':') == std::string::npos
           && std::none_of(header.name.begin(), header.name.end(), unclean)
           && std::none_of(header.value.begin(), header.value.end(), unclean);
}

/// One exchange, without redirects. The members are what libcurl's callbacks fill.
class Exchange {
public:
    Exchange(const HttpRequest& request, std::stop_token stop) : request_(request), stop_(std::move(stop)) {}

    Result<HttpResponse, HttpError> run(const std::string& url, const Address& address, bool sameOrigin,
                                        const std::string& method, std::string_view body,
                                        const CurlHttpClient::Overrides& overrides,
                                        std::optional<Steady::time_point> deadline);
    const std::string& redirectTarget() const { return redirectTarget_; }

private:
    bool configure(const std::string& url, const Address& address, bool sameOrigin, const std::string& method,
                   std::string_view body, const CurlHttpClient::Overrides& overrides);
    CURLcode drive(CURLM* multi, std::optional<Steady::time_point> deadline);
    HttpError error(CURLcode code, const Address& address) const;
    std::optional<std::uint64_t> contentLength() const;

    static std::size_t headerCallback(char* bytes, std::size_t size, std::size_t count, void* self);
    static std::size_t bodyCallback(char* bytes, std::size_t size, std::size_t count, void* self);
    static int progressCallback(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent);
    bool takeHeader(std::string_view line);
    bool takeBody(std::string_view bytes);

    const HttpRequest& request_;
    const std::stop_token stop_;
    EasyHandle easy_;
    StringList headers_, connectTo_;
    std::array<char, CURL_ERROR_SIZE> message_{};
    HttpResponse response_;
    std::size_t headerBytes_ = 0;
    std::uint64_t bodyBytes_ = 0;
    curl_off_t moved_ = 0;
    Steady::time_point lastMove_ = Steady::now();
    std::string redirectTarget_;
    /// Why a callback stopped the transfer.
    std::optional<HttpErrorKind> stopped_;
};

bool Exchange::configure(const std::string& url, const Address& address, bool sameOrigin, const std::string& method,
                         std::string_view body, const CurlHttpClient::Overrides& overrides) {
    CURL* const easy = easy_.get();
    bool fine = true;
    const auto set = [&](CURLoption option, auto value) {
        fine = curl_easy_setopt(easy, option, value) == CURLE_OK && fine;
    };
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    // A name lookup that hangs must not hold up a cancelled request.
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_TCP_NODELAY, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.connectTimeout.count()));
    set(CURLOPT_ERRORBUFFER, message_.data());
    set(CURLOPT_HEADERFUNCTION, &Exchange::headerCallback);
    set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    set(CURLOPT_WRITEFUNCTION, &Exchange::bodyCallback);
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &Exchange::progressCallback);
    set(CURLOPT_XFERINFODATA, static_cast<void*>(this));
    if (address.isLoopback()) set(CURLOPT_PROXY, "");
    // The system's certificate folder stays in use beside this file.
    if (!overrides.extraCaFile.empty()) set(CURLOPT_CAINFO, overrides.extraCaFile.c_str());
    for (const std::string& rule : overrides.connectTo) append(connectTo_, rule);
    if (connectTo_) {
        set(CURLOPT_CONNECT_TO, connectTo_.get());
        set(CURLOPT_PROXY, "");
    }

    if (method == "HEAD") set(CURLOPT_NOBODY, 1L);
    if (!body.empty() || method == "POST" || method == "PUT" || method == "PATCH") {
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        set(CURLOPT_POSTFIELDS, body.data() ? body.data() : "");
        append(headers_, "Expect:");
    }
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
    for (const HttpHeader& header : request_.headers) {
        // Keys and tokens belong to the server that the caller named.
        if (!sameOrigin && asciiLowercased(header.name) != "accept" && asciiLowercased(header.name) != "user-agent")
            continue;
        append(headers_, header.value.empty() ? header.name + ";" : header.name + ": " + header.value);
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
    return fine;
}

std::size_t Exchange::headerCallback(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Exchange*>(self)->takeHeader({bytes, size * count}) ? size * count : 0;
}

std::size_t Exchange::bodyCallback(char* bytes, std::size_t size, std::size_t count, void* self) {
    return static_cast<Exchange*>(self)->takeBody({bytes, size * count}) ? size * count : 0;
}

int Exchange::progressCallback(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    auto& exchange = *static_cast<Exchange*>(self);
    if (received + sent != exchange.moved_) {
        exchange.moved_ = received + sent;
        exchange.lastMove_ = Steady::now();
    }
    return exchange.stop_.stop_requested() ? 1 : 0;
}

bool Exchange::takeHeader(std::string_view line) {
    lastMove_ = Steady::now();
    headerBytes_ += line.size();
    if (headerBytes_ > CurlHttpClient::maxHeaderBytes) {
        stopped_ = HttpErrorKind::tooLarge;
        return false;
    }
    // An interim answer (100 Continue, a proxy's 200) is followed by another status line.
    if (line.starts_with("HTTP/")) {
        response_.headers.clear();
        return true;
    }
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos)
        response_.headers.push_back({std::string(line.substr(0, colon)), std::string(trimmed(line.substr(colon + 1)))});
    return true;
}

std::optional<std::uint64_t> Exchange::contentLength() const {
    curl_off_t length = -1;
    curl_easy_getinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    if (length < 0) return std::nullopt;
    return static_cast<std::uint64_t>(length);
}

bool Exchange::takeBody(std::string_view bytes) {
    lastMove_ = Steady::now();
    bodyBytes_ += bytes.size();
    if (bodyBytes_ > request_.maxResponseBytes || contentLength().value_or(0) > request_.maxResponseBytes) {
        stopped_ = HttpErrorKind::tooLarge;
        return false;
    }
    if (stop_.stop_requested()) return false;
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    if (request_.bodySink && status >= 200 && status < 300) {
        if (request_.bodySink(bytes, contentLength())) return true;
        stopped_ = HttpErrorKind::stoppedBySink;
        return false;
    }
    response_.body += bytes;
    return true;
}

CURLcode Exchange::drive(CURLM* multi, std::optional<Steady::time_point> deadline) {
    lastMove_ = Steady::now();
    for (;;) {
        int running = 0;
        if (curl_multi_perform(multi, &running) != CURLM_OK) return CURLE_FAILED_INIT;
        int waiting = 0;
        while (const CURLMsg* done = curl_multi_info_read(multi, &waiting))
            if (done->msg == CURLMSG_DONE) return done->data.result;
        if (stop_.stop_requested()) return CURLE_ABORTED_BY_CALLBACK;

        const auto now = Steady::now();
        auto until = lastMove_ + request_.timeout;
        if (deadline) until = std::min(until, *deadline);
        if (now >= until) return CURLE_OPERATION_TIMEDOUT;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(std::min<long long>(left, 60'000)), nullptr);
    }
}

HttpError Exchange::error(CURLcode code, const Address& address) const {
    const std::string& host = address.host;
    if (stop_.stop_requested()) return {HttpErrorKind::cancelled, "The request was cancelled."};
    if (stopped_ == HttpErrorKind::tooLarge)
        return {HttpErrorKind::tooLarge, fmt::format("The answer of {} was larger than allowed.", host)};
    if (stopped_) return {*stopped_, "The transfer was stopped."};
    const std::string detail = message_[0] ? message_.data() : curl_easy_strerror(code);
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT: return {HttpErrorKind::timeout, fmt::format("The request to {} timed out.", host)};
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return {HttpErrorKind::tls, fmt::format("A secure connection to {} could not be made: {}.", host, detail)};
    case CURLE_COULDNT_RESOLVE_HOST:
        return {HttpErrorKind::transport, fmt::format("The server {} could not be found.", host)};
    case CURLE_COULDNT_CONNECT:
        return {HttpErrorKind::transport, fmt::format("Could not connect to {}:{}.", host, address.port)};
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
        return {HttpErrorKind::invalidResponse, fmt::format("{} does not answer as a web server.", host)};
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR: return {HttpErrorKind::transport, fmt::format("The connection to {} was lost.", host)};
    default: return {HttpErrorKind::transport, fmt::format("The request to {} failed: {}.", host, detail)};
    }
}

Result<HttpResponse, HttpError> Exchange::run(const std::string& url, const Address& address, bool sameOrigin,
                                              const std::string& method, std::string_view body,
                                              const CurlHttpClient::Overrides& overrides,
                                              std::optional<Steady::time_point> deadline) {
    const MultiHandle multi(curl_multi_init());
    easy_.reset(curl_easy_init());
    if (!multi || !easy_ || !configure(url, address, sameOrigin, method, body, overrides))
        return unexpected(HttpError{HttpErrorKind::invalidRequest, "The request could not be prepared."});
    if (curl_multi_add_handle(multi.get(), easy_.get()) != CURLM_OK)
        return unexpected(HttpError{HttpErrorKind::transport, "The request could not be started."});
    CURLcode code = CURLE_OK;
    {
        // Ends before the handles do, so a late stop request cannot touch them.
        const std::stop_callback wake(stop_, [&] { curl_multi_wakeup(multi.get()); });
        code = drive(multi.get(), deadline);
    }
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    const char* target = nullptr;
    curl_easy_getinfo(easy_.get(), CURLINFO_REDIRECT_URL, &target);
    if (target) redirectTarget_ = target;
    curl_multi_remove_handle(multi.get(), easy_.get());
    if (code != CURLE_OK) return unexpected(error(code, address));
    response_.status = static_cast<int>(status);
    response_.url = url;
    return std::move(response_);
}

HttpError invalid(std::string description) { return {HttpErrorKind::invalidRequest, std::move(description)}; }
} // namespace

Result<HttpResponse, HttpError> CurlHttpClient::send(const HttpRequest& request, std::stop_token stop) {
    if (!libraryReady()) return unexpected(invalid("The network library could not be started."));
    const std::optional<Address> origin = parsedAddress(request.url);
    if (!origin) return unexpected(invalid("The address is not a valid http or https address."));
    if (!std::all_of(request.headers.begin(), request.headers.end(), isCleanHeader))
        return unexpected(invalid("A header of the request holds characters that are not allowed."));

    std::optional<Steady::time_point> deadline;
    if (request.totalTimeout) deadline = Steady::now() + *request.totalTimeout;
    std::string url = request.url;
    std::string method = request.method;
    std::string_view body = request.body;
    Address address = *origin;
    for (int followed = 0;; ++followed) {
        Exchange exchange(request, stop);
        auto answer = exchange.run(url, address, address.sameOrigin(*origin), method, body, overrides_, deadline);
        if (!answer || exchange.redirectTarget().empty() || !request.followRedirect) return answer;

        const int status = answer->status;
        const std::optional<Address> next = parsedAddress(exchange.redirectTarget());
        if (!next || !request.followRedirect(exchange.redirectTarget()))
            return unexpected(HttpError{HttpErrorKind::redirectRefused,
                                        fmt::format("{} redirected to an address that is not allowed.", address.host)});
        if (followed == maxRedirects)
            return unexpected(
                HttpError{HttpErrorKind::redirectRefused, fmt::format("{} redirected too often.", origin->host)});
        // As browsers do: only 307 and 308 repeat the method and the body.
        if (status == 303 || ((status == 301 || status == 302) && method == "POST")) {
            method = method == "HEAD" ? "HEAD" : "GET";
            body = {};
        }
        url = exchange.redirectTarget();
        address = *next;
    }
}
} // namespace snipwren
