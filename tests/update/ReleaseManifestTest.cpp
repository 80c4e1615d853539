#include "update/ReleaseManifest.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace snipwren {
namespace {
using Json = nlohmann::json;

Json goodManifest() {
    return {{"version", "1.4.0"},
            {"build", 140},
            {"minimumSystemVersion", "13.0"},
            {"dmgURL", "https://updates.snipwren.app/Snipwren-1.4.0.dmg"},
            {"sha256", std::string(64, 'A')},
            {"releaseNotes", {"Faster capture", "Fixes"}}};
}

TEST(ReleaseManifest, ReadsEveryField) {
    Json json = goodManifest();
    json["channel"] = "unknown keys are ignored";
    const auto manifest = ReleaseManifest::parse(json.dump());
    ASSERT_TRUE(manifest);
    EXPECT_EQ(*manifest, (ReleaseManifest{"1.4.0",
                                          140,
                                          "13.0",
                                          "https://updates.snipwren.app/Snipwren-1.4.0.dmg",
                                          std::string(64, 'a'),
                                          {"Faster capture", "Fixes"}}));
}

TEST(ReleaseManifest, NamesWhatIsWrong) {
    using enum ReleaseManifest::Error;
    const std::tuple<const char*, Json, ReleaseManifest::Error> rows[] = {
        {"version", nullptr, invalid},
        {"version", 14, invalid},
        {"version", "../../.profile", invalid},
        {"version", "1.0/x", invalid},
        {"version", "", invalid},
        {"version", std::string(33, '1'), invalid},
        {"build", "140", invalid},
        {"build", 140.5, invalid},
        {"build", -1, invalid},
        {"build", 18446744073709551615u, invalid},
        {"minimumSystemVersion", 13, invalid},
        {"releaseNotes", "one", invalid},
        {"releaseNotes", {"one", 2}, invalid},
        {"dmgURL", Json::array(), invalid},
        {"dmgURL", "http://updates.snipwren.app/a.dmg", missingSecurityFields},
        {"sha256", std::string(63, 'a'), missingSecurityFields},
        {"sha256", std::string(65, 'a'), missingSecurityFields},
        {"sha256", std::string(63, 'a') + "g", missingSecurityFields},
        {"sha256", std::string(64, 'a') + "\n", missingSecurityFields},
    };
    for (const auto& [key, value, want] : rows) {
        Json json = goodManifest();
        if (value.is_null())
            json.erase(key);
        else
            json[key] = value;
        const auto manifest = ReleaseManifest::parse(json.dump());
        ASSERT_FALSE(manifest) << json;
        EXPECT_EQ(manifest.error(), want) << json;
    }
    const std::string whole = goodManifest().dump();
    for (std::size_t cut = 0; cut < whole.size(); ++cut)
        ASSERT_FALSE(ReleaseManifest::parse(whole.substr(0, cut))) << cut;
    EXPECT_FALSE(ReleaseManifest::parse(whole + std::string(ReleaseManifest::maxBytes, ' ')));
    EXPECT_FALSE(ReleaseManifest::parse(std::string(200'000, '[')));
}

TEST(ReleaseManifest, ShowsNotesAsShortPlainLines) {
    Json json = goodManifest();
    json["releaseNotes"] = {"two\nlines\x1b[31m",
                            "\xE2\x80\xAE"
                            "reversed",
                            std::string(5000, 'x'), "", "  "};
    for (int i = 0; i < 100; ++i) json["releaseNotes"].push_back("more");
    const auto notes = ReleaseManifest::parse(json.dump())->releaseNotes;
    EXPECT_EQ(notes[0], "two lines [31m");
    EXPECT_EQ(notes[1], "reversed");
    EXPECT_EQ(notes[2], std::string(ReleaseManifest::maxNoteCharacters, 'x') + "…");
    EXPECT_EQ(notes.size(), ReleaseManifest::maxNoteLines);
}

TEST(ReleaseManifest, TrustsOneHostOverHttpsOnly) {
    for (const char* good :
         {"https://updates.snipwren.app/a.dmg", "https://updates.snipwren.app", "HTTPS://Updates.Snipwren.App/a?b=@c",
          "https://updates.snipwren.app:443/a.dmg", "https://updates.snipwren.app#x@y"})
        EXPECT_TRUE(ReleaseManifest::validDownloadURL(good)) << good;
    for (const char* bad : {"",
                            "http://updates.snipwren.app/a",
                            "https:/updates.snipwren.app/a",
                            "https:updates.snipwren.app",
                            "//updates.snipwren.app/a",
                            "https://updates.snipwren.app./a",
                            "https://updates.snipwren.app:8443/a",
                            "https://updates.snipwren.app:/a",
                            "https://updates.snipwren.app:0443/a",
                            "https://x@updates.snipwren.app/a",
                            "https://updates.snipwren.app@evil.example/a",
                            "https://updates.snipwren.app\\@evil.example/",
                            "https://updates.snipwren.app.evil.example/a",
                            "https://evil.example/updates.snipwren.app",
                            "https://\xD1\x83pdates.snipwren.app/a",
                            "https://updates%2Esnipwren.app/a",
                            "https:///updates.snipwren.app",
                            " https://updates.snipwren.app/a",
                            "https://updates.snipwren.app/a b",
                            "https://updates.snipwren.app/\n"})
        EXPECT_FALSE(ReleaseManifest::validDownloadURL(bad)) << bad;
    EXPECT_FALSE(ReleaseManifest::validDownloadURL("https://updates.snipwren.app/" + std::string(3000, 'x')));
}

TEST(ReleaseManifest, ComparesVersionsAsNumbers) {
    const std::tuple<const char*, const char*, int> rows[] = {
        {"1.10", "1.9", 1},     {"1.9", "1.10", -1}, {"1.0", "1", 0},
        {"1.0.1", "1", 1},      {"01.2", "1.2", 0},  {"2", "10", -1},
        {"1.2-beta", "1.2", 0}, {"", "0", 0},        {"99999999999999999999", "99999999999999999998", 1},
        {"1..2", "1.0.2", 0}};
    for (const auto& [left, right, want] : rows) {
        const auto order = compareVersions(left, right);
        EXPECT_EQ(order < 0 ? -1 : order > 0 ? 1 : 0, want) << left << " and " << right;
    }
}
} // namespace
} // namespace snipwren
