#include "cli/UpdateCommand.h"

#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "hosts/portable/CurlHttpClient.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"
#include "update/Sha256.h"

namespace snipwren {
namespace {
using Json = nlohmann::json;

class UpdateCommandTest : public testing::Test {
protected:
    TemporaryFolder folder;
    std::string host{UpdateService::host};
    TestCertificate certificate{folder.path(), host};
    std::string image = std::string(100'000, 'i');
    std::int64_t build = 140;
    LoopbackServer server{[this](const LoopbackRequest& request) {
                              return LoopbackReply{200, request.target == "/update.json" ? manifest() : image};
                          },
                          &certificate};
    Environment environment{Paths::under(folder.path())};
    CurlHttpClient http{CurlHttpClient::Overrides{certificate.certificateFile(),
                                                  {host + ":443:127.0.0.1:" + std::to_string(server.port())}}};
    UpdateService service{http, environment.files(), environment.paths().downloads, "1.3.0"};
    RunningBuild running{"1.3.0", 130, "6.1.0", false};
    std::istringstream in;
    std::ostringstream out, err;
    CommandContext context{in, out, err, environment};
    std::string opened;

    std::string manifest() const {
        Sha256 hash;
        hash.update(image);
        return Json{{"version", "1.4.0"},
                    {"build", build},
                    {"minimumSystemVersion", "5.10"},
                    {"dmgURL", "https://" + host + "/Snipwren-1.4.0.AppImage?from=cli"},
                    {"sha256", hash.hexDigest()},
                    {"releaseNotes", {"Faster"}}}
            .dump();
    }
    void install(bool json) {
        installUpdate(
            context, service, running,
            [this](const std::string& path) {
                opened = path;
                return true;
            },
            json);
    }
};

TEST_F(UpdateCommandTest, ReportsWhatItFound) {
    checkForUpdate(context, service, running, false);
    EXPECT_EQ(out.str(), "1.4.0 (build 140) is available; this is 1.3.0 (build 130).\n  - Faster\n"
                         "Install it with: snipwren update install\n");
    EXPECT_TRUE(environment.defaults().number(AppUpdateChecker::lastCheckKey));
    out.str("");
    build = 130 - 1;
    checkForUpdate(context, service, running, true);
    EXPECT_EQ(Json::parse(out.str())["status"], "upToDate");
    EXPECT_EQ(context.status, 0);
}

TEST_F(UpdateCommandTest, InstallsUnderTheEndingThatWasPublished) {
    install(true);
    const Json result = Json::parse(out.str());
    EXPECT_EQ(result["status"], "downloaded");
    EXPECT_EQ(opened, environment.paths().downloads + "/Snipwren-1.4.0.AppImage");
    EXPECT_EQ(environment.files().read(opened), image);
}

TEST_F(UpdateCommandTest, FailsInASentence) {
    image.resize(99'999);
    install(false);
    EXPECT_EQ(context.status, 1);
    EXPECT_NE(
        err.str().find("snipwren: Update Download Failed: The downloaded file size was unexpected (99999 bytes)."),
        std::string::npos)
        << err.str();
    running.isPackageManaged = true;
    out.str("");
    install(true);
    EXPECT_EQ(Json::parse(out.str())["message"], AppUpdateChecker::packageManagerAdvice);
    EXPECT_EQ(opened, "");
}
} // namespace
} // namespace snipwren
