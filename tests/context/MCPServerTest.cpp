#include "context/server/MCPServer.h"

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "base/FileIO.h"
#include "base/Log.h"
#include "base/Paths.h"
#include "base/Random.h"
#include "base/ThreadQueue.h"
#include "context/server/JsonRpc.h"
#include "context/server/JsonRpcHandler.h"
#include "context/server/LineBuffer.h"
#include "context/server/MCPHubManager.h"
#include "store/KeychainHelper.h"
#include "support/FakeLegacyKeychain.h"
#include "support/LineClient.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
/// Answers with the params; "slow" waits until it is released or its connection is gone; "subscribe" subscribes.
class EchoHandler final : public JsonRpcHandler {
public:
    explicit EchoHandler(MCPHubManager& hub) : hub_(hub) {}
    std::string handleRequest(std::string_view method, std::string_view params, std::string_view id,
                              const std::optional<std::string>& connectionId, std::stop_token stop) override {
        ++count;
        if (method == "slow") {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, stop, [&] { return released_; });
            if (stop.stop_requested()) ++abandoned;
        }
        if (method == "subscribe") return JsonRpc::result(id, hub_.subscribe(*connectionId) ? "true" : "false");
        if (method == "huge") return JsonRpc::result(id, '"' + std::string(1 << 20, 'x') + '"');
        return JsonRpc::result(id, params);
    }
    bool mayTakeLong(std::string_view method) const override { return method == "slow"; }
    void release() {
        const std::lock_guard lock(mutex_);
        released_ = true;
        wake_.notify_all();
    }

    std::atomic<int> count = 0;
    std::atomic<int> abandoned = 0;

private:
    MCPHubManager& hub_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    bool released_ = false;
};

class MCPServerTest : public testing::Test {
protected:
    MCPServerTest() {
        secretsQueue.start();
        hubQueue.start();
    }
    ~MCPServerTest() override {
        server.reset();
        hubQueue.sync([] {}); // The ended connections still tell the hub.
    }
    MCPServer& startServer(const MCPServer::Options& wanted = {.port = 0}) {
        server.emplace(MCPServer::Dependencies{handler, hub, secrets, random, notifications, log}, wanted);
        EXPECT_TRUE(server->start());
        return *server;
    }
    std::string token() { return MCPServer::getOrCreateMCPToken(secrets, random); }
    std::string header() { return "Authorization: Bearer " + token() + "\r\n"; }
    LineClient connect(std::string_view more = {}) {
        LineClient client(server->port());
        client.send(header() + std::string(more));
        return client;
    }
    /// Waits for the log line; everything here happens in bounded time, so the loop ends.
    bool logged(const std::string& part) {
        for (int i = 0; i < 20000; ++i) {
            for (const auto& line : log.lines())
                if (line.find(part) != std::string::npos) return true;
            std::this_thread::yield();
            if (i > 1000) ::usleep(1000);
        }
        return false;
    }
    static std::string request(int id, const std::string& method = "echo", const std::string& params = "{}") {
        return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":")" + method + R"(","params":)" + params
               + "}\n";
    }
    static std::string reply(int id, const std::string& result = "{}") {
        return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"result":)" + result + "}";
    }
    static std::size_t openDescriptors() {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return static_cast<std::size_t>(std::distance(begin(all), end(all)));
    }

    static constexpr const char* forbidden = "HTTP/1.1 403 Forbidden\r\nContent-Type: text/plain\r\n"
                                             "Connection: close\r\n\r\nForbidden: Invalid Token\n";
    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    MemoryLog log;
    SystemRandom random;
    FakeLegacyKeychain keychain;
    ThreadQueue secretsQueue{KeychainHelper::queueLabel};
    ThreadQueue hubQueue{MCPHubManager::queueLabel};
    ThreadQueue mainQueue{"main", ThreadQueue::Runs::inRunCall};
    NotificationCenter notifications{mainQueue};
    KeychainHelper secrets{
        {.files = files, .paths = paths, .queue = secretsQueue, .log = log, .keychain = keychain, .testMode = true}};
    MCPHubManager hub{hubQueue, log};
    EchoHandler handler{hub};
    std::optional<MCPServer> server;
};

TEST_F(MCPServerTest, LetsInOnlyTheExactHeader) {
    startServer();
    const std::string right = token();
    ASSERT_EQ(right.size(), 64u);
    EXPECT_EQ(right.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(token(), right) << "made once";
    std::string otherToken = right;
    otherToken.back() = otherToken.back() == '0' ? '1' : '0';
    const std::string refused[] = {"Authorization: Bearer " + otherToken + "\r\n" + request(1),
                                   "authorization: bearer " + right + "\n",
                                   "Authorization: Bearer " + right.substr(1) + "\n",
                                   "Authorization: Bearer " + right + "0\n",
                                   "Authorization: Bearer \n",
                                   "\n",
                                   "\xFF\xFE\n",
                                   std::string(2000, 'A')};
    for (const auto& bytes : refused) {
        LineClient client(server->port());
        client.send(bytes);
        EXPECT_EQ(client.all(), forbidden) << bytes;
    }
    for (const std::string end : {"\n", "\r\n", " \t\r\n"}) {
        LineClient client(server->port());
        client.send("Authorization: Bearer " + right + end + request(7));
        EXPECT_EQ(client.line(), reply(7));
    }
    EXPECT_EQ(handler.count, 3) << "nothing from a refused connection is handled";
    LineClient silent(server->port());
    silent.finishSending();
    EXPECT_EQ(silent.all(), forbidden);
}

TEST_F(MCPServerTest, IsReachableOnTheLoopbackAddressOnly) {
    startServer();
    const int other = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1); // 127.0.0.2 is this machine too, but not the bound address.
    EXPECT_NE(::connect(other, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(other);
}

TEST_F(MCPServerTest, PutsMessagesTogetherHoweverTheyAreCut) {
    startServer();
    const std::string text = R"({"text":"Grüße, 世界 🚀"})";
    const std::string stream =
        header() + request(1, "echo", text) + "\r\n   \n" + request(2, "echo", text) + request(3);
    for (const std::size_t size : {std::size_t{1}, std::size_t{3}, std::size_t{70}, stream.size()}) {
        LineClient client(server->port());
        const int noDelay = 1;
        ::setsockopt(client.fd(), IPPROTO_TCP, 1, &noDelay, sizeof noDelay);
        for (std::size_t at = 0; at < stream.size(); at += size) ASSERT_TRUE(client.send(stream.substr(at, size)));
        std::set<std::string> got;
        for (int i = 0; i < 3; ++i) got.insert(client.line().value_or("closed"));
        EXPECT_EQ(got, (std::set{reply(1, text), reply(2, text), reply(3)})) << "pieces of " << size;
    }
    handler.count = 0;
    LineClient whole = connect(request(1));
    whole.send(request(2).substr(0, 20));
    EXPECT_EQ(whole.line(), reply(1));
    whole.send(request(2).substr(20));
    EXPECT_EQ(whole.line(), reply(2));
    EXPECT_EQ(handler.count, 2) << "a message cut in two is handled once";
}

TEST_F(MCPServerTest, ABadMessageNeverClosesTheConnection) {
    startServer();
    std::string deep(100000, '[');
    deep = R"({"id":)" + deep + std::string(100000, ']') + "}";
    const std::string dropped[] = {"not json", "[1,2]", "\"text\"", "{\"id\":1", "{\"id\":\"\xC3\x28\"}",
                                   deep,       "{} {}"};
    LineClient client = connect();
    for (const auto& bad : dropped) client.send(bad + "\n");
    client.send("{\"id\":[1,{\"a\":1.50}],\"method\":5}\n");
    EXPECT_EQ(client.line(),
              R"({"jsonrpc":"2.0","id":[1,{"a":1.50}],"error":{"code":-32600,"message":"Invalid Request"}})");
    client.send(R"({"id":18446744073709551616000,"method":"echo"})"
                "\n");
    EXPECT_EQ(client.line(), R"({"jsonrpc":"2.0","id":18446744073709551616000,"result":{}})");
    client.send(R"({"method":"echo","params":[1]})"
                "\n");
    EXPECT_EQ(
        client.line(),
        R"({"jsonrpc":"2.0","id":null,"error":{"code":-32602,"message":"Invalid params: an object is required"}})");
    std::size_t complaints = 0;
    for (const auto& line : log.lines()) complaints += line.rfind("❌ Failed to parse JSON-RPC message: ", 0) == 0;
    EXPECT_EQ(complaints, std::size(dropped));
}

TEST_F(MCPServerTest, ASlowRequestHoldsUpNobody) {
    startServer();
    LineClient client = connect();
    LineClient other = connect();
    for (int i = 0; i < 6; ++i) client.send(request(100 + i, "slow")); // More than there are threads for slow ones.
    client.send(request(1));
    other.send(request(2));
    EXPECT_EQ(client.line(), reply(1));
    EXPECT_EQ(other.line(), reply(2));
    handler.release();
    std::set<std::string> got;
    for (int i = 0; i < 6; ++i) got.insert(client.line().value_or("closed"));
    EXPECT_EQ(got.size(), 6u);
}

TEST_F(MCPServerTest, AnswersWhatWasAskedBeforeTheClientStoppedSending) {
    startServer();
    LineClient client = connect(request(1) + request(2, "slow") + request(3));
    client.finishSending();
    EXPECT_TRUE(client.line());
    EXPECT_TRUE(client.line());
    handler.release();
    EXPECT_EQ(client.all(), reply(2) + "\n");
}

TEST_F(MCPServerTest, RepliesStayWholeUnderLoadFromManyClients) {
    startServer();
    constexpr int clients = 8;
    constexpr int requests = 2000;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int c = 0; c < clients; ++c)
        threads.emplace_back([&, c] {
            LineClient client = connect();
            std::string batch;
            for (int i = 0; i < requests; ++i) batch += request(i, "echo", R"({"client":)" + std::to_string(c) + "}");
            client.send(batch);
            std::set<std::string> got;
            for (int i = 0; i < requests; ++i) got.insert(client.line().value_or("closed"));
            for (int i = 0; i < requests; ++i)
                wrong += !got.contains(reply(i, R"({"client":)" + std::to_string(c) + "}"));
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(MCPServerTest, KeepsNothingOfAThousandClientsThatCameAndWent) {
    startServer();
    {
        LineClient first = connect(request(1));
        EXPECT_TRUE(first.line());
    }
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        LineClient client(server->port());
        ASSERT_TRUE(client.isConnected());
        if (i % 4 == 0) client.send(header() + request(i));
        if (i % 4 == 1) client.send(header() + request(i, "subscribe"));
        if (i % 4 == 2) client.send("nonsense\n");
    }
    // The server has to notice the last hang-ups; until then a new client may find all places taken.
    std::optional<std::string> answer;
    for (int i = 0; i < 1000 && (!answer || openDescriptors() > before); ++i) {
        answer = connect(request(1)).line();
        ::usleep(1000);
    }
    EXPECT_EQ(answer, reply(1));
    EXPECT_LE(openDescriptors(), before);
}

TEST_F(MCPServerTest, ClosesWhoSendsNoHeaderInTime) {
    MCPServer::Options options{.port = 0};
    options.authenticationTime = std::chrono::milliseconds(100);
    startServer(options);
    LineClient idle(server->port());
    EXPECT_EQ(idle.all(), forbidden);
    LineClient dripping(server->port());
    dripping.send("Auth");
    EXPECT_EQ(dripping.all(), forbidden);
}

TEST_F(MCPServerTest, ClosesWhoTakesTooMuch) {
    MCPServer::Options options{.port = 0};
    options.maxConnections = 2;
    options.maxUnsent = 8 << 20;
    startServer(options);
    {
        LineClient greedy = connect(std::string(LineBuffer::maxLine + 10, 'x'));
        EXPECT_EQ(greedy.all(), "");
        EXPECT_TRUE(logged("a line is longer than 16 MiB"));
    }
    {
        LineClient deaf = connect();
        for (int i = 0; i < 40; ++i) deaf.send(request(i, "huge"));
        EXPECT_TRUE(logged("MCP Connection closed: its client does not read what it is sent"));
    }
    LineClient first = connect(request(1));
    LineClient second = connect(request(2));
    EXPECT_TRUE(first.line() && second.line());
    LineClient third = connect();
    EXPECT_EQ(third.all(), "");
    EXPECT_TRUE(logged("MCP Connection closed: 2 are open already"));
}

TEST_F(MCPServerTest, StopsAndStartsUnderLoad) {
    startServer();
    const unsigned short port = server->port();
    std::vector<LineClient> clients;
    for (int i = 0; i < 20; ++i) {
        clients.push_back(connect(request(i)));
        EXPECT_TRUE(clients.back().line());
        for (int k = 0; k < 500; ++k) clients.back().send(request(k));
        clients.back().send(request(999, "slow"));
    }
    server->stop();
    EXPECT_FALSE(server->isListening());
    EXPECT_FALSE(LineClient(port).isConnected());
    for (auto& client : clients) client.all(); // Ends, because the connections are closed.
    EXPECT_TRUE(server->start());
    EXPECT_EQ(connect(request(5)).line(), reply(5));
    EXPECT_LE(handler.abandoned, 20);
    ASSERT_TRUE(server->start()) << "while listening: restarts";
    EXPECT_EQ(connect(request(6)).line(), reply(6));
}

TEST_F(MCPServerTest, ReportsAPortInUse) {
    startServer();
    MCPServer second({handler, hub, secrets, random, notifications, log}, {.port = server->port()});
    const auto started = second.start();
    ASSERT_FALSE(started);
    EXPECT_EQ(started.error().rfind("❌ Failed to start Snipwren MCP Server: ", 0), 0u);
    EXPECT_EQ(log.lines().back(), started.error());
    EXPECT_FALSE(second.isListening());
    EXPECT_TRUE(logged("🚀 Snipwren MCP Server listening on 127.0.0.1:" + std::to_string(server->port())));
}

TEST_F(MCPServerTest, FollowsTheToggle) {
    startServer();
    const auto post = [&](const UserInfo& info) { notifications.postNow(MCPServer::toggleNotification, info); };
    post({});
    post({{"object", true}});
    EXPECT_TRUE(server->isListening()) << "without a text nothing happens";
    post({{"object", "false"}});
    EXPECT_FALSE(server->isListening());
    post({{"object", "true"}});
    EXPECT_TRUE(server->isListening());
    post({{"object", "TRUE"}});
    EXPECT_FALSE(server->isListening()) << "any other text stops";
}

TEST_F(MCPServerTest, BroadcastsToSubscribersOnly) {
    startServer();
    LineClient subscribed = connect(request(1, "subscribe"));
    LineClient other = connect(request(2));
    EXPECT_EQ(subscribed.line(), reply(1, "true"));
    EXPECT_EQ(other.line(), reply(2));
    hub.broadcastContextChanged(R"({"project":"P"})");
    EXPECT_EQ(subscribed.line(), R"({"jsonrpc":"2.0","method":"snipwren.contextChanged","params":{"project":"P"}})");
    other.send(request(3));
    EXPECT_EQ(other.line(), reply(3));
}
} // namespace
} // namespace snipwren
