#include "hosts/linux/desktop/DesktopSession.h"

#include <map>

#include <gtest/gtest.h>

namespace snipwren {
namespace {
DesktopSession sessionWith(std::map<std::string, std::string> variables) {
    return DesktopSession::from([&](const char* name) -> std::optional<std::string> {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    });
}

TEST(DesktopSession, TapsWhereThereIsX11AndSaysWhyNotElsewhere) {
    EXPECT_FALSE(sessionWith({{"DISPLAY", ":0"}}).reasonNotToTap());
    EXPECT_FALSE(sessionWith({{"DISPLAY", ":0"}}).warning());

    const DesktopSession both = sessionWith({{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-0"}});
    EXPECT_FALSE(both.reasonNotToTap());
    ASSERT_TRUE(both.warning());
    EXPECT_NE(both.warning()->find("snipwren capture"), std::string::npos);

    for (const auto& session :
         {sessionWith({{"WAYLAND_DISPLAY", "wayland-0"}}), sessionWith({{"XDG_SESSION_TYPE", "wayland"}})}) {
        ASSERT_TRUE(session.reasonNotToTap());
        EXPECT_NE(session.reasonNotToTap()->find("Wayland"), std::string::npos);
        EXPECT_NE(session.reasonNotToTap()->find("snipwren type"), std::string::npos);
    }
    ASSERT_TRUE(sessionWith({}).reasonNotToTap());
    EXPECT_NE(sessionWith({}).reasonNotToTap()->find("DISPLAY"), std::string::npos);
}
} // namespace
} // namespace snipwren
