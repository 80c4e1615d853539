#include "targets/SlackTarget.h"

#include <atomic>
#include <cstdlib>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "base/ManualClock.h"
#include "base/ManualQueue.h"
#include "base/Paths.h"
#include "hosts/portable/CurlHttpClient.h"
#include "store/KeychainHelper.h"
#include "support/FakeAttempt.h"
#include "support/FakeLegacyKeychain.h"
#include "support/LoopbackServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

class SlackTargetTest : public testing::Test {
protected:
    SlackTargetTest() { secrets.save(SlackTarget::tokenOwner, SlackTarget::tokenKey, " xoxp-secret\n"); }
    SlackTarget targetFor(const std::string& address) { return SlackTarget({http, secrets, clock, log, address}); }
    std::string logText() const {
        std::string all;
        for (const std::string& line : log.lines()) all += line + "\n";
        return all;
    }
    /// What loading the picker logs when both lists get this answer.
    std::string problemWith(const LoopbackReply& reply) {
        MemoryLog only;
        LoopbackServer server([&](const LoopbackRequest&) { return reply; });
        SlackTarget target({http, secrets, clock, only, server.url("")});
        EXPECT_TRUE(target.pickerOptions({}).empty());
        const auto lines = only.lines();
        constexpr std::string_view prefix = "❌ SlackTarget: Failed to fetch Slack resources: ";
        return lines.size() == 1 && lines[0].rfind(prefix, 0) == 0 ? lines[0].substr(prefix.size()) : "(no line)";
    }
    Result<CaptureReceipt, CaptureError> send(SlackTarget& target, const std::string& text,
                                              const std::optional<PickerOption>& option) {
        return target.send(text, option, attempt);
    }
    /// The failure's description; empty on success.
    std::string problemOf(SlackTarget& target, const std::string& text, const std::optional<PickerOption>& option) {
        const auto sent = send(target, text, option);
        return sent ? "" : sent.error().description;
    }

    TemporaryFolder folder;
    PosixFileIO files;
    Paths paths = Paths::under(folder.path());
    ManualClock clock{fromSecondsSince1970(1'800'000'000)};
    ManualQueue queue{KeychainHelper::queueLabel, clock};
    FakeAttempt attempt{clock.now()};
    MemoryLog log;
    FakeLegacyKeychain keychain;
    KeychainHelper secrets{{files, paths, queue, log, keychain, true}};
    CurlHttpClient http;
};

/// 450 channels in pages of 200, as the service sends them; two people, a bot and one who has left.
LoopbackReply workspace(const LoopbackRequest& request) {
    Json body{{"ok", true}};
    if (request.target.rfind("/api/users.list", 0) == 0) {
        body["members"] = {{{"id", "U1"}, {"name", "ana"}},
                           {{"id", "U2"}, {"name", "ben\u001b[31m\n"}},
                           {{"id", "U3"}, {"name", "gone"}, {"deleted", true}},
                           {{"id", "U4"}, {"name", "robot"}, {"is_bot", true}}};
        return {200, body.dump()};
    }
    const std::size_t at = request.target.find("&cursor=");
    const int from =
        at == std::string::npos ? 0 : std::stoi(request.target.substr(at + 13)); // After "&cursor=page%3D".
    body["channels"] = Json::array();
    for (int i = from; i < std::min(from + 200, 450); ++i)
        body["channels"].push_back({{"id", "C" + std::to_string(i)}, {"name", "room-" + std::to_string(i)}});
    body["response_metadata"]["next_cursor"] = from + 200 < 450 ? "p +" + std::to_string(from + 200) : "";
    return {200, body.dump()};
}

TEST_F(SlackTargetTest, ListsTheWholeWorkspaceOnceAndFiltersIt) {
    LoopbackServer server([](const LoopbackRequest& request) {
        LoopbackRequest plain = request;
        if (const auto at = plain.target.find("p%20%2B"); at != std::string::npos)
            plain.target.replace(at, 7, "page%"); // Only a cursor that was encoded gets on.
        return workspace(plain);
    });
    SlackTarget target = targetFor(server.url(""));
    const auto options = target.pickerOptions({});
    ASSERT_EQ(options.size(), 452u);
    EXPECT_EQ(options[0], (PickerOption{"C0", "#room-0"}));
    EXPECT_EQ(options[450], (PickerOption{"U1", "@ana"}));
    EXPECT_EQ(options[451].displayName, "@ben[31m");
    EXPECT_EQ(server.requests().size(), 4u);
    for (const LoopbackRequest& request : server.requests()) {
        EXPECT_EQ(request.headers.at("authorization"), "Bearer xoxp-secret");
        EXPECT_EQ(request.headers.at("content-type"), "application/json; charset=utf-8");
        EXPECT_EQ(request.method, "GET");
    }
    EXPECT_EQ(target.pickerOptions({}).size(), 452u);
    EXPECT_EQ(server.requests().size(), 4u);
    EXPECT_EQ(target.filteredOptions("room-44").size(), 11u);
    target.resetCache();
    EXPECT_TRUE(target.filteredOptions("").empty());
    EXPECT_EQ(target.pickerOptions({}).size(), 452u);
    EXPECT_EQ(server.requests().size(), 8u);
    clock.advance(SlackTarget::cacheLifetime);
    target.pickerOptions({});
    EXPECT_EQ(server.requests().size(), 12u);
    EXPECT_EQ(logText().find("xoxp"), std::string::npos);
}

TEST_F(SlackTargetTest, SaysWhyTheListsCouldNotBeLoaded) {
    EXPECT_EQ(problemWith({429, "", "text/plain", {{"Retry-After", "30"}}}),
              "Slack rate limit — try again in 30 seconds");
    EXPECT_EQ(problemWith({429, ""}), "Slack rate limit — try again in a few seconds");
    EXPECT_EQ(problemWith({429, "", "text/plain", {{"Retry-After", "soon\x1b"}}}),
              "Slack rate limit — try again in a few seconds");
    EXPECT_EQ(problemWith({500, "{}"}), "Failed to connect to Slack API (HTTP 500)");
    EXPECT_EQ(problemWith({302, "", "text/html", {{"Location", "http://127.0.0.1:1/"}}}),
              "Failed to connect to Slack API (HTTP 302)"); // The token does not travel on.
    EXPECT_EQ(problemWith({200, R"({"ok":true,"channels":[{"id")"}), "Invalid JSON response from Slack API");
    EXPECT_EQ(problemWith({200, "<html>Log in</html>", "text/html"}), "Invalid JSON response from Slack API");
    EXPECT_EQ(problemWith({200, "[]"}), "Invalid JSON response from Slack API");
    EXPECT_EQ(problemWith({200, R"({"ok":false})"}), "Slack API Error: Unknown Slack error");
    EXPECT_EQ(problemWith({200, R"({"ok":"true","error":"no\nt"})"}), "Slack API Error: not");
    secrets.remove(SlackTarget::tokenOwner, SlackTarget::tokenKey);
    EXPECT_EQ(problemWith({200, "{}"}), "Slack not connected — add a token in Settings");
}

TEST_F(SlackTargetTest, OffersTheChannelsWhenPeopleMayNotBeListed) {
    LoopbackServer server([](const LoopbackRequest& request) -> LoopbackReply {
        if (request.target.rfind("/api/users.list", 0) == 0)
            return {200, R"({"ok":false,"error":"missing_scope","needed":"users:read"})"};
        return {200, R"({"ok":true,"channels":[{"id":"C1","name":"general"},7,{"id":8}]})"};
    });
    SlackTarget target = targetFor(server.url(""));
    EXPECT_EQ(target.pickerOptions({}), (std::vector<PickerOption>{{"C1", "#general"}}));
    EXPECT_NE(logText().find("missing_scope (the token lacks the scope users:read)"), std::string::npos) << logText();
}

TEST_F(SlackTargetTest, EndsWhenTheServerRepeatsItsCursor) {
    LoopbackServer server([](const LoopbackRequest&) {
        return LoopbackReply{200, R"({"ok":true,"response_metadata":{"next_cursor":"again"}})"};
    });
    EXPECT_TRUE(targetFor(server.url("")).pickerOptions({}).empty());
    EXPECT_EQ(server.requests().size(), 4u);
}

TEST_F(SlackTargetTest, GivesUpWaitingWhenStopped) {
    ScriptedServer server([](ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 100\r\n\r\n{\"ok\"");
        connection.waitForClose();
    });
    SlackTarget target = targetFor(server.url(""));
    std::stop_source stop;
    std::jthread loading([&] { EXPECT_TRUE(target.pickerOptions(stop.get_token()).empty()); });
    server.waitUntilServed(0);
    stop.request_stop();
}

TEST_F(SlackTargetTest, PostsTheCaptureToTheChosenConversation) {
    std::string answer = R"({"ok":true})";
    int status = 200;
    LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{status, answer}; });
    SlackTarget target = targetFor(server.url(""));
    const PickerOption general{"C1", "#general"};
    EXPECT_EQ(problemOf(target, "x", std::nullopt), "Please select a valid Slack channel from the target options.");
    const auto posted = send(target, " \"deployed\" ✅\n", general);
    ASSERT_TRUE(posted);
    EXPECT_EQ(*posted, (CaptureReceipt{"Posted to #general", std::nullopt, std::nullopt, false, {}}));
    ASSERT_EQ(server.requests().size(), 1u);
    const LoopbackRequest post = server.requests()[0];
    EXPECT_EQ(post.method + " " + post.target, "POST /api/chat.postMessage");
    EXPECT_EQ(Json::parse(post.body),
              (Json{{"channel", "C1"}, {"text", "\"deployed\" ✅"}, {"client_msg_id", attempt.captureId()}}));
    EXPECT_EQ(log.lines().back(), "📝 SlackTarget: Successfully posted captured message to Slack channel '#general'");

    answer = R"({"ok":false,"error":"channel_not_found"})";
    EXPECT_EQ(problemOf(target, "x", general), "Slack API Error: channel_not_found");
    answer = R"({"ok":false})";
    EXPECT_EQ(problemOf(target, "x", general), "Slack API Error: Unknown Slack error");
    answer = "ok";
    EXPECT_EQ(problemOf(target, "x", general), "Invalid JSON response from Slack API");
    status = 503;
    const auto down = send(target, "x", general);
    ASSERT_FALSE(down);
    EXPECT_EQ(down.error().domain, "SlackTarget");
    EXPECT_EQ(down.error().description, "Failed to connect to Slack API (HTTP error)");
    EXPECT_EQ(target.readiness(), std::nullopt);
    secrets.save(SlackTarget::tokenOwner, SlackTarget::tokenKey, "xoxp\r\nX-Evil: 1");
    EXPECT_EQ(target.readiness(), "Slack not connected — add a token in Settings");
    EXPECT_EQ(problemOf(target, "x", general), "Slack not connected — add a token in Settings");
}

TEST_F(SlackTargetTest, PostsAgainUnderTheSameIdentifierAndNotTooLate) {
    LoopbackServer server([&](const LoopbackRequest&) { return LoopbackReply{200, R"({"ok":true})"}; });
    SlackTarget target = targetFor(server.url(""));
    FakeAttempt next = attempt.next();
    for (FakeAttempt* one : {&attempt, &next}) ASSERT_TRUE(target.send("x", PickerOption{"C1", "#general"}, *one));
    EXPECT_EQ(server.requests()[0].body, server.requests()[1].body);
    EXPECT_TRUE(target.deliversAfter(std::chrono::minutes(10)));
    EXPECT_FALSE(target.deliversAfter(std::chrono::minutes(11)));
    EXPECT_GT(target.patience(), SlackTarget::requestTimeout);
}

TEST(SlackTarget, OnlyATestMayNameAnotherServerAndOnlyOneOfThisComputer) {
    const struct {
        const char* mode;
        const char* address;
        bool isTaken;
    } rows[] = {
        {"1", "http://127.0.0.1:8080", true},
        {"1", "http://localhost:1", true},
        {"1", "http://[::1]:65535", true},
        {"0", "http://127.0.0.1:8080", false},
        {"1", "", false},
        {"1", "http://127.0.0.1", false},
        {"1", "http://127.0.0.1:", false},
        {"1", "https://127.0.0.1:8080", false},
        {"1", "http://localhost:1@example.org", false},
        {"1", "http://127.0.0.1.example.org:80", false},
        {"1", "http://127.0.0.1:80/path", false},
    };
    for (const auto& [mode, address, isTaken] : rows) {
        ::setenv("SW_TEST_MODE", mode, 1);
        ::setenv("SNIPWREN_SLACK_URL", address, 1);
        EXPECT_EQ(SlackTarget::baseUrlFromEnvironment(), isTaken ? address : SlackTarget::defaultBaseUrl) << address;
    }
    ::unsetenv("SW_TEST_MODE");
    ::unsetenv("SNIPWREN_SLACK_URL");
}

TEST(PickerFilter, RanksBeginningsThenPartsAndForgivesTypingErrors) {
    PickerFilter filter;
    filter.setOptions({{"1", "#dev-general"},
                       {"2", "#General"},
                       {"3", "#random"},
                       {"4", "@gene"},
                       {"5", "#généraux"},
                       {"6", "#general-talk"}});
    const auto names = [&](const char* query) {
        std::string all;
        for (const PickerOption& option : filter.matching(query)) all += option.displayName + " ";
        return all;
    };
    EXPECT_EQ(names("GEN"), "@gene #General #general-talk #dev-general ");
    EXPECT_EQ(names("#gen"), "#General #general-talk #dev-general ");
    EXPECT_EQ(names("@"), "@gene ");
    EXPECT_EQ(names("genrel"), "@gene #General ");
    EXPECT_EQ(names("rnadom"), "#random ");
    EXPECT_EQ(names("zz"), "");
    EXPECT_EQ(filter.matching("  ").size(), 6u);
    EXPECT_EQ(filter.matching("").front().id, "1");
    EXPECT_EQ(PickerFilter::levenshtein(U"kitten", U"sitting", 5), 3u);
    EXPECT_GT(PickerFilter::levenshtein(U"kitten", U"sitting", 2), 2u);
}
} // namespace
} // namespace snipwren
