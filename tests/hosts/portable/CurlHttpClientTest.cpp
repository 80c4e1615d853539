#include "hosts/portable/CurlHttpClient.h"

#include <thread>

#include <gtest/gtest.h>

#include "support/LoopbackServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using namespace std::chrono_literals;

HttpRequest get(const std::string& url) {
    HttpRequest request;
    request.url = url;
    return request;
}

TEST(CurlHttpClient, SendsWhatItIsGivenAndReturnsTheAnswerWhole) {
    LoopbackServer server([](const LoopbackRequest& request) {
        return LoopbackReply{
            request.method == "POST" ? 201 : 404, "got " + request.body, "text/plain", {{"X-Tag", "a b"}}};
    });
    CurlHttpClient client;
    HttpRequest post = get(server.url("/p?q=1"));
    post.method = "POST";
    post.headers = {{"Content-Type", "application/json"}};
    post.body = std::string("{\"z\":\0}", 7);
    const auto answer = client.send(post, {});
    ASSERT_TRUE(answer) << answer.error().description;
    EXPECT_EQ(answer->status, 201);
    EXPECT_EQ(answer->body, "got " + post.body);
    EXPECT_EQ(answer->header("x-TAG"), "a b");
    EXPECT_EQ(client.send(get(server.url("/")), {})->status, 404);

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/p?q=1");
    EXPECT_EQ(requests[0].headers.at("content-type"), "application/json");
    EXPECT_EQ(requests[0].headers.count("expect"), 0u);
    EXPECT_EQ(requests[1].method, "GET");
}

TEST(CurlHttpClient, RefusesWhatIsNoCleanHttpRequest) {
    CurlHttpClient client;
    for (const char* url : {"", "ftp://127.0.0.1/x", "file:///etc/passwd", "not an address", "http://"}) {
        const auto answer = client.send(get(url), {});
        ASSERT_FALSE(answer) << url;
        EXPECT_EQ(answer.error().kind, HttpErrorKind::invalidRequest) << url;
    }
    HttpRequest request = get("http://127.0.0.1:9/");
    request.headers = {{"X-Key", "abc\r\nX-Smuggled: 1"}};
    EXPECT_EQ(client.send(request, {}).error().kind, HttpErrorKind::invalidRequest);
}

TEST(CurlHttpClient, StreamsBytesAsTheyArriveEvenOneByOne) {
    const std::string body = "stream of single bytes";
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        connection.sendBytewise("HTTP/1.1 200 OK\r\nContent-Length: 22\r\n\r\n");
        connection.sendBytewise(body);
    });
    HttpRequest request = get(server.url("/"));
    std::string got;
    std::optional<std::uint64_t> length;
    request.bodySink = [&](std::string_view bytes, std::optional<std::uint64_t> whole) {
        got += bytes;
        length = whole;
        return true;
    };
    const auto answer = CurlHttpClient().send(request, {});
    ASSERT_TRUE(answer) << answer.error().description;
    EXPECT_EQ(got, body);
    EXPECT_EQ(length, 22u);
    EXPECT_TRUE(answer->body.empty());
}

TEST(CurlHttpClient, KeepsTheBodyOfAnErrorAwayFromTheSink) {
    LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{429, "slow down", "text/plain", {}}; });
    HttpRequest request = get(server.url("/"));
    request.bodySink = [](std::string_view, std::optional<std::uint64_t>) -> bool {
        ADD_FAILURE() << "the sink saw an error body";
        return true;
    };
    EXPECT_EQ(CurlHttpClient().send(request, {})->body, "slow down");
}

TEST(CurlHttpClient, NamesHowATransferFailed) {
    const auto outcome = [](const ScriptedServer::Script& script, const std::function<void(HttpRequest&)>& prepare) {
        ScriptedServer server(script);
        HttpRequest request = get(server.url("/"));
        prepare(request);
        const auto answer = CurlHttpClient().send(request, {});
        return answer ? std::optional<HttpErrorKind>() : answer.error().kind;
    };
    const auto plain = [](HttpRequest&) {};
    const auto cut = [](ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort");
    };
    EXPECT_EQ(outcome(cut, plain), HttpErrorKind::transport);
    EXPECT_EQ(outcome([](ScriptedServer::Connection&) {}, plain), HttpErrorKind::transport);
    EXPECT_EQ(outcome([](auto& connection) { connection.send("hello\r\n\r\n"); }, plain),
              HttpErrorKind::invalidResponse);

    const auto stall = [](ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\npart");
        connection.waitForClose();
    };
    EXPECT_EQ(outcome(stall, [](HttpRequest& request) { request.timeout = 60ms; }), HttpErrorKind::timeout);
    EXPECT_EQ(outcome(stall, [](HttpRequest& request) { request.totalTimeout = 60ms; }), HttpErrorKind::timeout);
    EXPECT_EQ(outcome(stall,
                      [](HttpRequest& request) {
                          request.bodySink = [](std::string_view, std::optional<std::uint64_t>) { return false; };
                      }),
              HttpErrorKind::stoppedBySink);

    const auto bound = [](HttpRequest& request) { request.maxResponseBytes = 10; };
    const auto bytes = [](std::string_view head, std::size_t count) {
        return [=](ScriptedServer::Connection& connection) {
            connection.send("HTTP/1.1 200 OK\r\n" + std::string(head) + "\r\n" + std::string(count, 'x'));
        };
    };
    EXPECT_EQ(outcome(bytes("", 10), bound), std::nullopt);
    EXPECT_EQ(outcome(bytes("", 11), bound), HttpErrorKind::tooLarge);
    EXPECT_EQ(outcome(bytes("Content-Length: 11\r\n", 1), bound), HttpErrorKind::tooLarge);
    EXPECT_EQ(outcome(
                  [](ScriptedServer::Connection& connection) {
                      connection.send("HTTP/1.1 200 OK\r\n");
                      while (connection.send("X: " + std::string(1000, 'y') + "\r\n")) {}
                  },
                  plain),
              HttpErrorKind::tooLarge);
}

TEST(CurlHttpClient, CancelsInTheMiddleOfAStall) {
    std::stop_source source;
    ScriptedServer server([&](ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\n\r\npart");
        source.request_stop();
        connection.waitForClose();
    });
    HttpRequest request = get(server.url("/"));
    request.timeout = std::chrono::hours(1); // Only the stop request can end it.
    const auto answer = CurlHttpClient().send(request, source.get_token());
    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().kind, HttpErrorKind::cancelled);
    EXPECT_EQ(CurlHttpClient().send(request, source.get_token()).error().kind, HttpErrorKind::cancelled);
}

TEST(CurlHttpClient, FollowsOnlyTheRedirectsThatTheRuleAllows) {
    LoopbackServer other([](const LoopbackRequest& request) {
        return LoopbackReply{
            200, request.method + (request.headers.count("authorization") ? " key" : ""), "text/plain", {}};
    });
    LoopbackServer server([&](const LoopbackRequest& request) {
        if (request.target == "/end") return LoopbackReply{200, "end", "text/plain", {}};
        const std::string to = request.target == "/loop"    ? "/loop"
                               : request.target == "/other" ? other.url("/")
                               : request.target == "/file"  ? "file:///etc/passwd"
                                                            : "/end";
        return LoopbackReply{302, "moved", "text/plain", {{"Location", to}}};
    });
    CurlHttpClient client;
    EXPECT_EQ(client.send(get(server.url("/start")), {})->status, 302);

    std::vector<std::string> asked;
    const auto send = [&](const std::string& target, bool allow) {
        HttpRequest request = get(server.url(target));
        request.method = "POST";
        request.body = "x";
        request.headers = {{"Authorization", "Bearer secret"}};
        request.followRedirect = [&asked, allow](const std::string& url) {
            asked.push_back(url);
            return allow;
        };
        return client.send(request, {});
    };
    const auto followed = send("/start", true);
    ASSERT_TRUE(followed);
    EXPECT_EQ(followed->body, "end");
    EXPECT_EQ(followed->url, server.url("/end"));
    EXPECT_EQ(asked, std::vector{server.url("/end")});
    EXPECT_EQ(send("/other", true)->body, "GET") << "the key went to another server";
    EXPECT_EQ(send("/start", false).error().kind, HttpErrorKind::redirectRefused);
    EXPECT_EQ(send("/loop", true).error().kind, HttpErrorKind::redirectRefused);
    EXPECT_EQ(send("/file", true).error().kind, HttpErrorKind::redirectRefused);
}

TEST(CurlHttpClient, VerifiesTheCertificateAndItsName) {
    const TemporaryFolder folder;
    const TestCertificate good(folder.path(), "updates.example");
    const TestCertificate stranger(folder.path(), "stranger.example");
    const auto kind = [&](const TestCertificate& served, const TestCertificate* trusted) {
        LoopbackServer server([](const LoopbackRequest&) { return LoopbackReply{}; }, &served);
        CurlHttpClient::Overrides overrides;
        if (trusted) overrides.extraCaFile = trusted->certificateFile();
        overrides.connectTo = {"updates.example:443:127.0.0.1:" + std::to_string(server.port())};
        const auto answer = CurlHttpClient(overrides).send(get("https://updates.example/"), {});
        return answer ? std::optional<HttpErrorKind>() : answer.error().kind;
    };
    EXPECT_EQ(kind(good, &good), std::nullopt);
    EXPECT_EQ(kind(good, nullptr), HttpErrorKind::tls);
    EXPECT_EQ(kind(good, &stranger), HttpErrorKind::tls);
    EXPECT_EQ(kind(stranger, &stranger), HttpErrorKind::tls) << "a trusted certificate for another name";
}
} // namespace
} // namespace snipwren
