#include "update/UpdateService.h"

#include <filesystem>
#include <optional>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/FileIO.h"
#include "hosts/portable/CurlHttpClient.h"
#include "support/LoopbackServer.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryFolder.h"
#include "update/Sha256.h"

namespace snipwren {
namespace {
std::string sha256Of(std::string_view bytes) {
    Sha256 hash;
    hash.update(bytes);
    return hash.hexDigest();
}

/// The update service on this machine, under its real name and with a certificate that the client trusts.
class UpdateServiceTest : public testing::Test {
protected:
    std::string host{UpdateService::host};
    TemporaryFolder folder;
    TestCertificate certificate{folder.path(), host};
    std::string downloads = folder.file("Downloads");
    PosixFileIO files;
    LoopbackReply reply;
    LoopbackServer server{[this](const LoopbackRequest&) { return reply; }, &certificate};
    CurlHttpClient http{overridesFor(server.port())};
    UpdateService service{http, files, downloads, "1.3.0", {10, 20}};

    CurlHttpClient::Overrides overridesFor(int port) const {
        return {certificate.certificateFile(), {host + ":443:127.0.0.1:" + std::to_string(port)}};
    }
    ReleaseManifest manifestFor(std::string_view body) const {
        return {"1.4.0", 140, "13.0", "https://" + host + "/files/Snipwren.dmg", sha256Of(body), {}};
    }
    std::string downloadText(const ReleaseManifest& manifest) const {
        const auto saved = service.download(manifest, {}, {});
        return saved ? "saved" : saved.error().title + ": " + saved.error().text;
    }
    bool nothingIsLeft() const { return !std::filesystem::exists(downloads) || std::filesystem::is_empty(downloads); }
    static std::string stayed(const std::string& text) {
        return text + "\n\nSnipwren stayed open. Check for updates and try again.";
    }
};

TEST_F(UpdateServiceTest, AsksForTheManifestAsItself) {
    const ReleaseManifest manifest = manifestFor("x");
    reply.body = nlohmann::json{{"version", manifest.version},    {"build", manifest.build},
                                {"minimumSystemVersion", "13.0"}, {"dmgURL", manifest.dmgURL},
                                {"sha256", manifest.sha256},      {"releaseNotes", nlohmann::json::array()}}
                     .dump();
    const auto fetched = service.fetchManifest({});
    ASSERT_TRUE(fetched) << fetched.error().text;
    EXPECT_EQ(*fetched, manifest);
    const LoopbackRequest request = server.requests().at(0);
    EXPECT_EQ(request.method + " " + request.target, "GET /update.json");
    EXPECT_EQ(request.headers.at("accept"), "application/json");
    EXPECT_EQ(request.headers.at("user-agent"), "Snipwren/1.3.0");
}

TEST_F(UpdateServiceTest, SaysWhyACheckFailed) {
    const auto text = [&](const UpdateService& from) {
        const auto fetched = from.fetchManifest({});
        if (fetched) return std::string("fetched");
        EXPECT_EQ(fetched.error().title, "Update Check Failed");
        return fetched.error().text;
    };
    reply.status = 503;
    EXPECT_EQ(text(service), "The update service returned HTTP 503. Try again later.");
    reply = {200, "<html>", "text/html", {}};
    EXPECT_EQ(text(service), "The release manifest was invalid. No update was downloaded.");
    reply.body =
        R"({"version":"2","build":2,"minimumSystemVersion":"1","dmgURL":"http://a/","sha256":"","releaseNotes":[]})";
    EXPECT_EQ(text(service), "The release manifest is missing required security fields.");
    reply = {302, "", "text/plain", {{"Location", "https://elsewhere.example/update.json"}}};
    EXPECT_EQ(text(service).substr(0, 40), "Could not reach the update service.\n\nupd");

    CurlHttpClient untrusting({{}, {host + ":443:127.0.0.1:" + std::to_string(server.port())}});
    EXPECT_EQ(text(UpdateService(untrusting, files, downloads, "1.3.0")).substr(0, 38),
              "Could not reach the update service.\n\nA");
}

TEST_F(UpdateServiceTest, SavesAVerifiedDownloadOverAnOlderOne) {
    reply.body = "exactly 20 bytes....";
    std::filesystem::create_directory(downloads);
    ASSERT_TRUE(files.writeAtomic(downloads + "/Snipwren-1.4.0.dmg", "old", {}));
    std::vector<double> fractions;
    const auto saved = service.download(manifestFor(reply.body), [&](double at) { fractions.push_back(at); }, {});
    ASSERT_TRUE(saved) << saved.error().text;
    EXPECT_EQ(*saved, downloads + "/Snipwren-1.4.0.dmg");
    EXPECT_EQ(files.read(*saved), reply.body);
    EXPECT_EQ(files.list(downloads)->size(), 1u);
    EXPECT_EQ(fractions.back(), 1.0);
}

TEST_F(UpdateServiceTest, KeepsNothingOfADownloadThatFails) {
    const auto size = [](const char* text) {
        return "Update Download Failed: "
               + stayed("The downloaded file size was unexpected (" + std::string(text) + " bytes).");
    };
    for (const std::size_t fine : {10u, 20u}) {
        reply.body.assign(fine, 'x');
        EXPECT_EQ(downloadText(manifestFor(reply.body)), "saved") << fine;
        std::filesystem::remove_all(downloads);
    }
    const std::pair<std::size_t, const char*> sizes[] = {{9, "9"}, {21, "21"}, {5000, "5000"}};
    for (const auto& [count, named] : sizes) {
        reply.body.assign(count, 'x');
        EXPECT_EQ(downloadText(manifestFor(reply.body)), size(named));
        EXPECT_TRUE(nothingIsLeft()) << count;
    }
    reply.body.assign(15, 'x');
    EXPECT_EQ(downloadText(manifestFor("another file")),
              "Update Verification Failed: "
                  + stayed("The downloaded file did not match the published SHA-256 checksum."));
    reply.status = 404;
    EXPECT_EQ(downloadText(manifestFor(reply.body)),
              "Update Download Failed: " + stayed("The download server returned HTTP 404"));
    reply = {200, "", "text/plain", {}};
    EXPECT_EQ(downloadText(manifestFor("")),
              "Update Download Failed: " + stayed("No file was returned from the download server."));
    reply = {301, "", "text/plain", {{"Location", "https://updates.snipwren.app.evil.example/x.dmg"}}};
    EXPECT_EQ(downloadText(manifestFor("")),
              "Update Download Failed: " + stayed(host + " redirected to an address that is not allowed."));
    EXPECT_TRUE(nothingIsLeft());
    ASSERT_TRUE(files.writeAtomic(folder.file("blocked"), "", {}));
    reply = {200, std::string(15, 'x'), "text/plain", {}};
    const UpdateService blocked(http, files, folder.file("blocked"), "1.3.0", {10, 20});
    EXPECT_EQ(blocked.download(manifestFor(reply.body), {}, {}).error().title, "Update Download Failed");
}

/// An http stand-in for bodies that no web server library sends.
class PlainHttp final : public HttpClient {
public:
    explicit PlainHttp(const ScriptedServer& server) : server_(server) {}
    Result<HttpResponse, HttpError> send(const HttpRequest& request, std::stop_token stop) override {
        HttpRequest redirected = request;
        redirected.url = server_.url("/");
        redirected.timeout = timeout;
        return client_.send(redirected, stop);
    }
    std::chrono::milliseconds timeout{std::chrono::hours(1)};

private:
    CurlHttpClient client_;
    const ScriptedServer& server_;
};

TEST_F(UpdateServiceTest, LeavesNothingWhenTheBodyStallsIsCutIsEndlessOrIsCancelled) {
    std::stop_source source;
    std::string rest;
    bool stalls = true;
    ScriptedServer scripted([&](ScriptedServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\n" + rest);
        if (stalls) connection.waitForClose();
    });
    PlainHttp plain(scripted);
    const UpdateService from(plain, files, downloads, "1.3.0", {10, 20});

    rest = "Content-Length: 15\r\n\r\n12345";
    plain.timeout = std::chrono::milliseconds(50);
    EXPECT_EQ(from.download(manifestFor(""), {}, {}).error().text, stayed("The request to 127.0.0.1 timed out."));
    scripted.waitUntilServed(1); // The script reads what the test changes next.
    stalls = false;
    EXPECT_EQ(from.download(manifestFor(""), {}, {}).error().text, stayed("The connection to 127.0.0.1 was lost."));
    scripted.waitUntilServed(2);
    rest = "\r\n" + std::string(21, 'x');
    EXPECT_EQ(from.download(manifestFor(""), {}, {}).error().text,
              stayed("The downloaded file size was unexpected (more than 20 bytes)."));

    scripted.waitUntilServed(3);
    rest = "\r\n12345";
    stalls = true;
    plain.timeout = std::chrono::hours(1);
    const auto cancelled = from.download(
        manifestFor(""), [&](double) { source.request_stop(); }, source.get_token());
    EXPECT_TRUE(cancelled.error().cancelled);
    EXPECT_TRUE(nothingIsLeft());
}

TEST(UpdateServiceBounds, TakesReleasesOfTheDocumentedSizesOnly) {
    /// Announces a size and stops when the sink refuses, so that no test needs the bytes.
    class Announcing final : public HttpClient {
    public:
        std::uint64_t size = 0;
        Result<HttpResponse, HttpError> send(const HttpRequest& request, std::stop_token) override {
            if (!request.bodySink("some", size)) return unexpected(HttpError{HttpErrorKind::stoppedBySink, "stopped"});
            return unexpected(HttpError{HttpErrorKind::transport, "accepted"});
        }
    } http;
    const TemporaryFolder folder;
    PosixFileIO files;
    const UpdateService service(http, files, folder.path(), "1");
    const std::pair<std::uint64_t, bool> rows[] = {
        {99'999, false}, {100'000, true}, {150'000'000, true}, {150'000'001, false}};
    for (const auto& [size, accepted] : rows) {
        http.size = size;
        const std::string text = service.download({}, {}, {}).error().text;
        EXPECT_EQ(text.starts_with("accepted"), accepted) << text;
    }
}
} // namespace
} // namespace snipwren
